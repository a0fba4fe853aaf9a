#include "simulation/leaks.h"

#include <cstddef>
#include <cstdlib>
#include <new>

#include <fcntl.h>

namespace simulation {

namespace {

// One thread, so no atomic.
long gBlocks = 0;

/// More than a life ever opens.
constexpr int kMaxDescriptors = 48;

}  // namespace

Holdings CountHoldings() {
    Holdings holdings{gBlocks, 0};
    for (int descriptor = 0; descriptor < kMaxDescriptors; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) >= 0) {
            ++holdings.descriptors;
        }
    }
    return holdings;
}

}  // namespace simulation

void* operator new(std::size_t size) {
    void* const block = std::malloc(size == 0 ? 1 : size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    ++simulation::gBlocks;
    return block;
}

void operator delete(void* block) noexcept {
    if (block != nullptr) {
        --simulation::gBlocks;
        std::free(block);
    }
}

void operator delete(void* block, std::size_t) noexcept {
    operator delete(block);
}
