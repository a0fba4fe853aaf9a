#pragma once

#include <memory>

#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

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

using BioPtr = OpenSslPtr<BIO, BIO_free>;
using CmsPtr = OpenSslPtr<CMS_ContentInfo, CMS_ContentInfo_free>;
using OpenSslMemoryPtr = OpenSslPtr<void, FreeOpenSslMemory>;
using PkeyContextPtr = OpenSslPtr<EVP_PKEY_CTX, EVP_PKEY_CTX_free>;
using PkeyPtr = OpenSslPtr<EVP_PKEY, EVP_PKEY_free>;
using RequestPtr = OpenSslPtr<X509_REQ, X509_REQ_free>;
using X509Ptr = OpenSslPtr<X509, X509_free>;

}  // namespace openssl_support
