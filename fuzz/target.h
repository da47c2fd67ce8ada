// What every fuzz target is and uses.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>

// Takes one input; the name and the result (0) are libFuzzer's.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

// Stops the run when something that must hold does not, in every kind of build.
inline void Require(bool holds)
{
    if (!holds) {
        abort();
    }
}
