#pragma once

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include "openssl_support/openssl_ptr.h"

namespace orv::sec::crypto {

using openssl_support::OpenSslMemoryPtr;
using openssl_support::OpenSslPtr;

using BioPtr = OpenSslPtr<BIO, BIO_free>;
using CipherContextPtr = OpenSslPtr<EVP_CIPHER_CTX, EVP_CIPHER_CTX_free>;
using DigestContextPtr = OpenSslPtr<EVP_MD_CTX, EVP_MD_CTX_free>;
using PkeyPtr = OpenSslPtr<EVP_PKEY, EVP_PKEY_free>;
using PkeyContextPtr = OpenSslPtr<EVP_PKEY_CTX, EVP_PKEY_CTX_free>;
using Pkcs8Ptr = OpenSslPtr<PKCS8_PRIV_KEY_INFO, PKCS8_PRIV_KEY_INFO_free>;
using X509Ptr = OpenSslPtr<X509, X509_free>;
using RequestPtr = OpenSslPtr<X509_REQ, X509_REQ_free>;
using NamePtr = OpenSslPtr<X509_NAME, X509_NAME_free>;
using NameConstraintsPtr = OpenSslPtr<NAME_CONSTRAINTS, NAME_CONSTRAINTS_free>;

}  // namespace orv::sec::crypto
