#pragma once

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <vector>

namespace fuzz {

/// Tries one input. Each fuzzer has its own; no byte behind the input may be read.
void TryInput(std::string_view input);

/// Ends the process if a property does not hold; the fuzzer then keeps the input.
inline void Check(bool holds, const char* property) {
    if (!holds) {
        std::fprintf(stderr, "Does not hold: %s\n", property);
        std::abort();
    }
}

/// Where to cut an input in two: everywhere in a short one, in some thirty places in a long one.
inline std::vector<std::size_t> Cuts(std::size_t size) {
    constexpr std::size_t kPlaces = 32;
    const std::size_t step = 1 + size / kPlaces;
    std::vector<std::size_t> cuts;
    for (std::size_t cut = 0; cut <= size; cut += step) {
        cuts.push_back(cut);
    }
    return cuts;
}

}  // namespace fuzz
