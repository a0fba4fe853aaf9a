#pragma once

#include <cstddef>
#include <cstdint>

namespace orv::sec::crypto {

/// Keeps this process out of core dumps, and other users' debuggers out of it (prctl(2),
/// PR_SET_DUMPABLE), unless environment variable ORV_CRYPTO_CORE_DUMPS is "1".
void KeepOutOfCoreDumps();

/// Memory for a long-lived key: not swapped where the limit on locked memory permits it, excluded
/// from core dumps, wiped at its release.
class SecretMemory {
public:
    /// `size` is at most a page. `CryptoError` with `kOutOfResources` when there is no memory.
    explicit SecretMemory(std::size_t size);
    ~SecretMemory();
    SecretMemory(const SecretMemory&) = delete;
    SecretMemory& operator=(const SecretMemory&) = delete;

    std::uint8_t* Data() { return mBytes; }
    const std::uint8_t* Data() const { return mBytes; }

private:
    const std::size_t mSize;
    std::uint8_t* mBytes = nullptr;
};

}  // namespace orv::sec::crypto
