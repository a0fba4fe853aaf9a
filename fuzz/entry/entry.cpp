// What all fuzzers have in common: libFuzzer calls them here.

#include <cstdint>

#include "fuzz/check.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::TryInput({reinterpret_cast<const char*>(data), size});
    return 0;
}
