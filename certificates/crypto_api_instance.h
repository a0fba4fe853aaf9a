#pragma once

#include <memory>

#include <orv/sec/crypto/i_crypto_service_provider.h>

namespace vintrel {

/// Owner of the crypto library's lifetime: initialises it when constructed and cleans it up when
/// destroyed. The one instance of a process is made by the first `GetCryptoApiInstance` and
/// destroyed at process exit, after all static objects that were constructed later.
class CryptoApiInstance {
public:
    /// The library's provider. The first call initialises the library; when that fails it throws
    /// `std::runtime_error`, and the next call tries again. Any thread may call it.
    static std::shared_ptr<orv::sec::crypto::ICryptoServiceProvider> GetCryptoApiInstance();

    CryptoApiInstance();
    ~CryptoApiInstance();
    CryptoApiInstance(const CryptoApiInstance&) = delete;
    CryptoApiInstance& operator=(const CryptoApiInstance&) = delete;

private:
    std::shared_ptr<orv::sec::crypto::ICryptoServiceProvider> mCryptoServiceProvider;
};

}  // namespace vintrel
