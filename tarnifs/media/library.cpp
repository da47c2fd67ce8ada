#include "tarnifs/media/library.h"

int enumMedia(_CONTEXT *, const char *, void *, tarni_filler)
{
    return 0;
}
