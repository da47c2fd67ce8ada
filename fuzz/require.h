// Stops the run when something that must hold does not, in every kind of build.
#pragma once

#include <cstdlib>

inline void Require(bool holds)
{
    if (!holds) {
        abort();
    }
}
