#pragma once

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include "openssl_support/openssl_ptr.h"

namespace simulator::pki {

using openssl_support::OpenSslMemoryPtr;
using openssl_support::OpenSslPtr;

using BioPtr = OpenSslPtr<BIO, BIO_free>;
using ExtensionPtr = OpenSslPtr<X509_EXTENSION, X509_EXTENSION_free>;
using PkeyPtr = OpenSslPtr<EVP_PKEY, EVP_PKEY_free>;
using X509Ptr = OpenSslPtr<X509, X509_free>;

}  // namespace simulator::pki
