#pragma once

#include <memory>

#include <openssl/crypto.h>

namespace openssl_support {

/// Deletes an OpenSSL object with its own function.
template <auto Free>
struct OpenSslDeleter {
    template <typename T>
    void operator()(T* object) const noexcept {
        Free(object);
    }
};

/// Owns an OpenSSL object.
template <typename T, auto Free>
using OpenSslPtr = std::unique_ptr<T, OpenSslDeleter<Free>>;

/// `OPENSSL_free` is a macro.
inline void FreeOpenSslMemory(void* memory) noexcept {
    OPENSSL_free(memory);
}

using OpenSslMemoryPtr = OpenSslPtr<void, FreeOpenSslMemory>;

}  // namespace openssl_support
