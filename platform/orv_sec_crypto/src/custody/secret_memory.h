#pragma once

#include <cstddef>
#include <cstdint>

namespace orv::sec::crypto {

/// Keeps this process out of core dumps, and other users' debuggers out of it (prctl(2),
/// PR_SET_DUMPABLE), unless environment variable ORV_CRYPTO_CORE_DUMPS is "1".
void KeepOutOfCoreDumps();

/// Memory for a key that lives long: not swapped, where the limit on locked memory allows it, not
/// in core dumps in any case, wiped when it goes.
class SecretMemory {
public:
    /// At most a page. `CryptoError` with `kOutOfResources` where there is none.
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
