#include "simulator/pki/authority.h"

#include <array>
#include <utility>

#include <openssl/err.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <pki_support/certificates.h>
#include <pki_support/pki_error.h>

namespace simulator::pki {

using openssl_support::OpenSslPtr;

namespace {

using ExtensionPtr = OpenSslPtr<X509_EXTENSION, X509_EXTENSION_free>;

constexpr std::size_t kSerialBytes = 16;

void Require(bool condition, const char* what) {
    if (!condition) {
        ERR_clear_error();
        throw pki_support::PkiError(what);
    }
}

void SetSerial(X509& certificate) {
    std::array<unsigned char, kSerialBytes> bytes{};
    Require(RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) == 1, "no random numbers");
    // Positive, and of full length (RFC 5280, section 4.1.2.2).
    bytes[0] = static_cast<unsigned char>((bytes[0] & 0x3fU) | 0x40U);
    const OpenSslPtr<BIGNUM, BN_free> number(
        BN_bin2bn(bytes.data(), static_cast<int>(bytes.size()), nullptr));
    Require(number != nullptr &&
                BN_to_ASN1_INTEGER(number.get(), X509_get_serialNumber(&certificate)) != nullptr,
            "cannot set the serial number");
}

void SetTime(ASN1_TIME* field, std::chrono::system_clock::time_point time) {
    Require(ASN1_TIME_adj(field, std::chrono::system_clock::to_time_t(time), 0, 0) != nullptr,
            "cannot set a date");
}

void AddExtension(X509& certificate, X509& issuer, int nid, const char* value) {
    X509V3_CTX context{};
    X509V3_set_ctx(&context, &issuer, &certificate, nullptr, nullptr, 0);
    const ExtensionPtr extension(X509V3_EXT_conf_nid(nullptr, &context, nid, value));
    Require(extension != nullptr && X509_add_ext(&certificate, extension.get(), -1) == 1,
            "cannot add an extension");
}

/// A certificate that lacks its extensions and its signature.
X509Ptr Draft(const std::string& commonName, EVP_PKEY& publicKey, const Validity& validity) {
    X509Ptr certificate(X509_new());
    Require(certificate != nullptr && X509_set_version(certificate.get(), X509_VERSION_3) == 1,
            "out of memory");
    SetSerial(*certificate);
    SetTime(X509_getm_notBefore(certificate.get()), validity.notBefore);
    SetTime(X509_getm_notAfter(certificate.get()), validity.notAfter);
    Require(X509_NAME_add_entry_by_NID(X509_get_subject_name(certificate.get()), NID_commonName,
                                       MBSTRING_UTF8,
                                       reinterpret_cast<const unsigned char*>(commonName.data()),
                                       static_cast<int>(commonName.size()), -1, 0) == 1,
            "the common name is refused");
    Require(X509_set_pubkey(certificate.get(), &publicKey) == 1, "the public key is refused");
    return certificate;
}

void AddCaExtensions(X509& certificate, X509& issuer, const char* constraints) {
    AddExtension(certificate, issuer, NID_basic_constraints, constraints);
    AddExtension(certificate, issuer, NID_key_usage, "critical,keyCertSign,cRLSign");
    AddExtension(certificate, issuer, NID_subject_key_identifier, "hash");
}

void Finish(X509& certificate, X509& issuer, EVP_PKEY& issuerKey) {
    Require(X509_set_issuer_name(&certificate, X509_get_subject_name(&issuer)) == 1,
            "cannot set the issuer");
    AddExtension(certificate, issuer, NID_authority_key_identifier, "keyid");
    Require(X509_sign(&certificate, &issuerKey, EVP_sha256()) > 0, "cannot sign");
}

}  // namespace

PkeyPtr GenerateKey() {
    PkeyPtr key(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
    Require(key != nullptr, "cannot make a key");
    return key;
}

Authority::Authority(X509Ptr certificate, PkeyPtr key)
    : mCertificate(std::move(certificate)), mKey(std::move(key)) {
    Require(pki_support::HasPublicKey(*mCertificate, *mKey),
            "the key does not belong to the CA's certificate");
    Require(pki_support::IsCa(*mCertificate), "the certificate is no CA's");
}

Authority Authority::CreateRoot(const std::string& commonName, const Validity& validity) {
    PkeyPtr key = GenerateKey();
    X509Ptr certificate = Draft(commonName, *key, validity);
    AddCaExtensions(*certificate, *certificate, "critical,CA:TRUE");
    Finish(*certificate, *certificate, *key);
    return {std::move(certificate), std::move(key)};
}

Authority Authority::CreateIssuing(const std::string& commonName, const Validity& validity) const {
    PkeyPtr key = GenerateKey();
    X509Ptr certificate = Draft(commonName, *key, validity);
    AddCaExtensions(*certificate, *mCertificate, "critical,CA:TRUE,pathlen:0");
    Finish(*certificate, *mCertificate, *mKey);
    return {std::move(certificate), std::move(key)};
}

X509Ptr Authority::Issue(const EndEntity& endEntity) const {
    X509Ptr certificate = Draft(endEntity.commonName, *endEntity.publicKey, endEntity.validity);
    AddExtension(*certificate, *mCertificate, NID_basic_constraints, "critical,CA:FALSE");
    AddExtension(*certificate, *mCertificate, NID_key_usage, "critical,digitalSignature");
    if (endEntity.isTlsClient) {
        AddExtension(*certificate, *mCertificate, NID_ext_key_usage, "clientAuth");
    }
    AddExtension(*certificate, *mCertificate, NID_subject_key_identifier, "hash");
    Finish(*certificate, *mCertificate, *mKey);
    return certificate;
}

}  // namespace simulator::pki
