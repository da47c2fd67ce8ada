#include "tarnifs/listing/apps.h"

int enumApps(_CONTEXT *, const char *, void *, tarni_filler)
{
    return 0;
}
