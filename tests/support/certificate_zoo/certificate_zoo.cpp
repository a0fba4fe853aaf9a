#include "certificate_zoo/certificate_zoo.h"

#include <ctime>
#include <functional>
#include <stdexcept>

#include <openssl/cms.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

namespace testing_support {

namespace {

void Require(bool condition, const char* what) {
    if (!condition) {
        ERR_clear_error();
        throw std::runtime_error(std::string("certificate zoo: ") + what);
    }
}

/// Owns an OpenSSL object; refuses null.
template <typename T, typename Free>
std::shared_ptr<T> Own(T* object, Free free, const char* what) {
    Require(object != nullptr, what);
    return {object, free};
}

template <typename Write>
std::string WithMemoryBio(Write write) {
    const auto bio = Own(BIO_new(BIO_s_mem()), BIO_free, "BIO_new");
    Require(write(bio.get()) == 1, "cannot encode");
    char* text = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &text);
    return {text, static_cast<std::size_t>(size)};
}

const EVP_MD* Digest(const std::string& name) {
    const EVP_MD* digest = EVP_get_digestbyname(name.c_str());
    Require(digest != nullptr, "unknown digest");
    return digest;
}

void SetCommonName(X509_NAME* subject, const std::string& name) {
    Require(X509_NAME_add_entry_by_NID(subject, NID_commonName, MBSTRING_UTF8,
                                       reinterpret_cast<const unsigned char*>(name.data()),
                                       static_cast<int>(name.size()), -1, 0) == 1,
            "common name");
}

void AddExtension(X509* certificate, X509* issuer, const std::string& name,
                  const std::string& value) {
    if (value.empty()) {
        return;
    }
    X509V3_CTX context{};
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    const auto extension = Own(X509V3_EXT_nconf(nullptr, &context, name.c_str(), value.c_str()),
                               X509_EXTENSION_free, "extension");
    Require(X509_add_ext(certificate, extension.get(), -1) == 1, "extension");
}

void SetTime(ASN1_TIME* field, CertificateTraits::TimePoint time) {
    Require(ASN1_TIME_adj(field, std::chrono::system_clock::to_time_t(time), 0, 0) != nullptr,
            "date");
}

void AddExtensions(X509* certificate, X509* issuer, const CertificateTraits& traits) {
    std::string constraints = traits.isCa ? "critical,CA:TRUE" : "critical,CA:FALSE";
    if (traits.pathLength) {
        constraints += ",pathlen:" + std::to_string(*traits.pathLength);
    }
    const std::string usage =
        traits.isCa ? "critical,keyCertSign,cRLSign" : "critical,digitalSignature";
    // In descending order: a self-signed certificate's authority key identifier comes from its
    // subject key identifier.
    std::map<std::string, std::string, std::greater<>> extensions(traits.extensions.begin(),
                                                                  traits.extensions.end());
    extensions.insert({{"basicConstraints", constraints},
                       {"keyUsage", traits.keyUsage.value_or(usage)},
                       {"extendedKeyUsage", traits.extendedKeyUsage},
                       {"subjectKeyIdentifier", "hash"},
                       {"authorityKeyIdentifier", "keyid"}});
    for (const auto& [name, value] : extensions) {
        AddExtension(certificate, issuer, name, value);
    }
}

void BreakSignature(X509* certificate) {
    const ASN1_BIT_STRING* signature = nullptr;
    X509_get0_signature(&signature, nullptr, certificate);
    // The last byte belongs to a number of the signature: it stays well-formed, and wrong.
    const_cast<unsigned char*>(ASN1_STRING_get0_data(signature))[signature->length - 1] ^= 1U;
}

Identity Make(const CertificateTraits& traits, const Identity* issuer) {
    Identity made;
    made.key = traits.key != nullptr ? traits.key : MakeKey(traits.keyType);
    made.certificate = Own(X509_new(), X509_free, "X509_new");
    X509* certificate = made.certificate.get();
    X509* issuerCertificate = issuer == nullptr ? certificate : issuer->certificate.get();
    if (traits.commonName) {
        SetCommonName(X509_get_subject_name(certificate), *traits.commonName);
    }
    X509_set_version(certificate, X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate), traits.serial);
    X509_set_issuer_name(certificate, X509_get_subject_name(issuerCertificate));
    SetTime(X509_getm_notBefore(certificate), traits.notBefore);
    SetTime(X509_getm_notAfter(certificate), traits.notAfter);
    if (traits.hasNoEnd) {
        ASN1_TIME_set_string(X509_getm_notAfter(certificate), "99991231235959Z");
    }
    Require(X509_set_pubkey(certificate, made.key.get()) == 1, "public key");
    AddExtensions(certificate, issuerCertificate, traits);
    EVP_PKEY* signer = issuer == nullptr ? made.key.get() : issuer->key.get();
    Require(X509_sign(certificate, signer, Digest(traits.digest)) > 0, "signature");
    if (traits.hasBrokenSignature) {
        BreakSignature(certificate);
    }
    return made;
}

}  // namespace

Key MakeKey(const std::string& type) {
    if (type.compare(0, 3, "RSA") == 0) {
        const std::size_t bits = std::stoul(type.substr(3));
        return Own(EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", bits), EVP_PKEY_free, "RSA key");
    }
    return Own(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", type.c_str()), EVP_PKEY_free, "EC key");
}

std::string PrivateKeyPem(const Key& key) {
    return WithMemoryBio([&key](BIO* bio) {
        return PEM_write_bio_PKCS8PrivateKey(bio, key.get(), nullptr, nullptr, 0, nullptr, nullptr);
    });
}

std::string PublicKeyDer(const Key& key) {
    return WithMemoryBio([&key](BIO* bio) { return i2d_PUBKEY_bio(bio, key.get()); });
}

Key ReadPublicKey(const unsigned char* der, std::size_t size) {
    return Own(d2i_PUBKEY(nullptr, &der, static_cast<long>(size)), EVP_PKEY_free, "no public key");
}

std::string Identity::Pem() const {
    return WithMemoryBio([this](BIO* bio) { return PEM_write_bio_X509(bio, certificate.get()); });
}

std::string Identity::Der() const {
    return WithMemoryBio([this](BIO* bio) { return i2d_X509_bio(bio, certificate.get()); });
}

CertificateTraits CaTraits(const std::string& commonName) {
    CertificateTraits traits;
    traits.commonName = commonName;
    traits.isCa = true;
    return traits;
}

Identity SelfSigned(const CertificateTraits& traits) {
    return Make(traits, nullptr);
}

Identity IssuedBy(const Identity& issuer, const CertificateTraits& traits) {
    return Make(traits, &issuer);
}

std::string PemOf(const std::vector<Identity>& identities) {
    std::string pem;
    for (const Identity& identity : identities) {
        pem += identity.Pem();
    }
    return pem;
}

std::string MakeRequest(const Key& key, const std::string& commonName, const Key& signer) {
    const auto request = Own(X509_REQ_new(), X509_REQ_free, "X509_REQ_new");
    X509_REQ_set_version(request.get(), X509_REQ_VERSION_1);
    SetCommonName(X509_REQ_get_subject_name(request.get()), commonName);
    Require(X509_REQ_set_pubkey(request.get(), key.get()) == 1, "public key");
    EVP_PKEY* signingKey = signer == nullptr ? key.get() : signer.get();
    Require(X509_REQ_sign(request.get(), signingKey, EVP_sha256()) > 0, "signature");
    return WithMemoryBio([&request](BIO* bio) { return i2d_X509_REQ_bio(bio, request.get()); });
}

Key ReadRequest(const std::vector<std::uint8_t>& der, const std::string& commonName) {
    const unsigned char* position = der.data();
    const auto request = Own(d2i_X509_REQ(nullptr, &position, static_cast<long>(der.size())),
                             X509_REQ_free, "no request");
    char name[65] = {};
    X509_NAME_get_text_by_NID(X509_REQ_get_subject_name(request.get()), NID_commonName, name,
                              sizeof(name));
    Require(name == commonName, "a request for another common name");
    Require(X509_REQ_verify(request.get(), X509_REQ_get0_pubkey(request.get())) == 1,
            "a request that is not signed with its own key");
    return Own(X509_REQ_get_pubkey(request.get()), EVP_PKEY_free, "a request without a key");
}

std::string MakeContainer(const std::string& payload, const Identity& signer,
                          const std::vector<Identity>& others, const std::string& digest) {
    constexpr unsigned int kFlags = CMS_PARTIAL | CMS_BINARY;
    const auto content = Own(BIO_new_mem_buf(payload.data(), static_cast<int>(payload.size())),
                             BIO_free, "BIO_new_mem_buf");
    const auto cms =
        Own(CMS_sign(nullptr, nullptr, nullptr, nullptr, kFlags), CMS_ContentInfo_free, "CMS_sign");
    Require(CMS_add1_signer(cms.get(), signer.certificate.get(), signer.key.get(), Digest(digest),
                            kFlags) != nullptr,
            "signer");
    for (const Identity& other : others) {
        Require(CMS_add1_cert(cms.get(), other.certificate.get()) == 1, "certificate");
    }
    Require(CMS_final(cms.get(), content.get(), nullptr, kFlags) == 1, "CMS_final");
    return WithMemoryBio(
        [&cms](BIO* bio) { return PEM_write_bio_CMS_stream(bio, cms.get(), nullptr, 0); });
}

Family::Family(const std::string& name, const std::string& commonName) {
    root = SelfSigned(CaTraits(name + " Root"));
    CertificateTraits caTraits = CaTraits(name + " CA");
    caTraits.pathLength = 0;
    intermediate = IssuedBy(root, caTraits);
    CertificateTraits leafTraits;
    leafTraits.commonName = commonName;
    leaf = IssuedBy(intermediate, leafTraits);
}

}  // namespace testing_support
