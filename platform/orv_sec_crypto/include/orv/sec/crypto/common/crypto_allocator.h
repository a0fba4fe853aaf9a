#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include <string.h>

namespace orv::sec::crypto::common {

/// Allocator of every buffer that may hold key or certificate material: it overwrites the memory
/// with zeros, in a way that the compiler does not remove, before it releases it. A vector that
/// grows wipes its old block, too. Stateless; any thread may use it. `allocate` throws
/// `std::bad_alloc` as `std::allocator` does.
template <typename T>
class CryptoAllocator {
public:
    using value_type = T;

    CryptoAllocator() noexcept = default;
    template <typename U>
    // NOLINTNEXTLINE(google-explicit-constructor): the allocator requirements ask for a conversion
    CryptoAllocator(const CryptoAllocator<U>&) noexcept {}

    T* allocate(std::size_t count) { return std::allocator<T>().allocate(count); }

    void deallocate(T* memory, std::size_t count) noexcept {
        ::explicit_bzero(static_cast<void*>(memory), count * sizeof(T));
        std::allocator<T>().deallocate(memory, count);
    }
};

template <typename T, typename U>
bool operator==(const CryptoAllocator<T>&, const CryptoAllocator<U>&) noexcept {
    return true;
}

template <typename T, typename U>
bool operator!=(const CryptoAllocator<T>&, const CryptoAllocator<U>&) noexcept {
    return false;
}

/// The byte buffer in which the library takes and gives keys, certificates and signatures.
using ByteVector = std::vector<std::uint8_t, CryptoAllocator<std::uint8_t>>;

}  // namespace orv::sec::crypto::common
