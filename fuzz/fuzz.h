/// What the targets share: an input, and what must hold of it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

/// Ends the run with the input that broke it.
inline void must(bool holds) {
    if (!holds) {
        std::abort();
    }
}
