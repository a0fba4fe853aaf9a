#pragma once

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include "openssl_support/openssl_ptr.h"

namespace orv::sec::tive {

using openssl_support::OpenSslMemoryPtr;
using openssl_support::OpenSslPtr;

/// Frees the elements, too.
inline void FreeAsn1Sequence(ASN1_SEQUENCE_ANY* elements) noexcept {
    sk_ASN1_TYPE_pop_free(elements, ASN1_TYPE_free);
}

using BioPtr = OpenSslPtr<BIO, BIO_free>;
using CmsPtr = OpenSslPtr<CMS_ContentInfo, CMS_ContentInfo_free>;
using ObjectPtr = OpenSslPtr<ASN1_OBJECT, ASN1_OBJECT_free>;
using Asn1TypePtr = OpenSslPtr<ASN1_TYPE, ASN1_TYPE_free>;
using Asn1SequencePtr = OpenSslPtr<ASN1_SEQUENCE_ANY, FreeAsn1Sequence>;
using Asn1StringPtr = OpenSslPtr<ASN1_STRING, ASN1_STRING_free>;
using X509Ptr = OpenSslPtr<X509, X509_free>;

}  // namespace orv::sec::tive
