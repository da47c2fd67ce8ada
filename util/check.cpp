#include "util/check.h"

#include <cstdio>
#include <cstdlib>

#include "util/log.h"

void qnCheckFailed(const char *what, const char *file, int line)
{
    QNLog(3, "%s Assertion failed: %s (%s:%d)", "qnCheckFailed", what, file,
          line);
    fprintf(stderr, "Assertion failed: %s (%s:%d)\n", what, file, line);
    abort();
}
