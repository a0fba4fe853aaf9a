#pragma once

#include <memory>

#include <openssl/evp.h>

#include <orv/sec/crypto/common/i_key_id.h>
#include <orv/sec/crypto/store/i_crypto_store.h>

namespace orv::sec::crypto::host {

struct PrivateKeyDeleter {
    void operator()(EVP_PKEY* key) const noexcept { EVP_PKEY_free(key); }
};

using PrivateKey = std::unique_ptr<EVP_PKEY, PrivateKeyDeleter>;

/// The private key (P-256) of a key pair, for other libraries of the host platform that sign with
/// it; the caller keeps it no longer than one operation. Null if `keyId` was not made by `store`,
/// if there is no such pair, or if it cannot be read or does not decrypt; the reason is in the log.
/// May be called by any thread.
PrivateKey LoadPrivateKey(const store::ICryptoStore& store, const common::IKeyID& keyId);

}  // namespace orv::sec::crypto::host
