#include "benchmarks/bare_crypto.h"

#include <stdexcept>
#include <utility>

#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

namespace bare_pass {

namespace {

using Request = OpenSslPtr<X509_REQ, X509_REQ_free>;
using Cms = OpenSslPtr<CMS_ContentInfo, CMS_ContentInfo_free>;
using Bio = OpenSslPtr<BIO, BIO_free_all>;
using Pkcs8 = OpenSslPtr<PKCS8_PRIV_KEY_INFO, PKCS8_PRIV_KEY_INFO_free>;
using Cipher = OpenSslPtr<EVP_CIPHER_CTX, EVP_CIPHER_CTX_free>;
using Digest = OpenSslPtr<EVP_MD_CTX, EVP_MD_CTX_free>;
using Extension = OpenSslPtr<X509_EXTENSION, X509_EXTENSION_free>;

constexpr int kNonceSize = 12;
constexpr int kTagSize = 16;

void SetName(X509_NAME* name, const std::string& commonName) {
    Require(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                                       reinterpret_cast<const unsigned char*>(commonName.c_str()),
                                       -1, -1, 0) == 1);
}

std::string Contents(BIO* bio) {
    char* data = nullptr;
    const long size = BIO_get_mem_data(bio, &data);
    return {data, static_cast<std::size_t>(size)};
}

}  // namespace

void Require(bool good) {
    if (!good) {
        throw std::runtime_error("a call failed");
    }
}

Key NewKey() {
    Key key(EVP_EC_gen("P-256"));
    Require(key != nullptr);
    return key;
}

WrappingKey NewWrappingKey() {
    WrappingKey key{};
    Require(RAND_bytes(key.data(), static_cast<int>(key.size())) == 1);
    return key;
}

Certificate Issue(const std::string& commonName, Role role, EVP_PKEY* key, X509* issuer,
                  EVP_PKEY* issuerKey) {
    Certificate certificate(X509_new());
    Require(X509_set_version(certificate.get(), X509_VERSION_3) == 1);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 1);
    SetName(X509_get_subject_name(certificate.get()), commonName);
    X509_set_issuer_name(certificate.get(),
                         X509_get_subject_name(issuer != nullptr ? issuer : certificate.get()));
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), 0);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 86400L * 3650);
    X509_set_pubkey(certificate.get(), key);
    const Extension constraints(
        X509V3_EXT_conf_nid(nullptr, nullptr, NID_basic_constraints,
                            role == Role::kCa ? "critical,CA:TRUE" : "critical,CA:FALSE"));
    Require(X509_add_ext(certificate.get(), constraints.get(), -1) == 1);
    Require(X509_sign(certificate.get(), issuerKey, EVP_sha256()) > 0);
    return certificate;
}

std::string ToPem(X509* certificate) {
    const Bio bio(BIO_new(BIO_s_mem()));
    Require(PEM_write_bio_X509(bio.get(), certificate) == 1);
    return Contents(bio.get());
}

Certificate FromPem(const std::string& pem) {
    const Bio bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    Certificate certificate(PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr));
    Require(certificate != nullptr);
    return certificate;
}

std::string Wrap(const WrappingKey& wrappingKey, const std::string& id, const Bytes& plain) {
    Bytes blob(kNonceSize + kTagSize + plain.size());
    unsigned char* const body = blob.data() + kNonceSize + kTagSize;
    const Cipher cipher(EVP_CIPHER_CTX_new());
    int size = 0;
    Require(RAND_bytes(blob.data(), kNonceSize) == 1 &&
            EVP_EncryptInit_ex2(cipher.get(), EVP_aes_256_gcm(), wrappingKey.data(), blob.data(),
                                nullptr) == 1 &&
            EVP_EncryptUpdate(cipher.get(), nullptr, &size,
                              reinterpret_cast<const unsigned char*>(id.data()),
                              static_cast<int>(id.size())) == 1 &&
            EVP_EncryptUpdate(cipher.get(), body, &size, plain.data(),
                              static_cast<int>(plain.size())) == 1 &&
            EVP_EncryptFinal_ex(cipher.get(), body + size, &size) == 1 &&
            EVP_CIPHER_CTX_ctrl(cipher.get(), EVP_CTRL_AEAD_GET_TAG, kTagSize,
                                blob.data() + kNonceSize) == 1);
    return {blob.begin(), blob.end()};
}

Bytes Unwrap(const WrappingKey& wrappingKey, const std::string& id, const std::string& wrapped) {
    Bytes blob(wrapped.begin(), wrapped.end());
    Bytes plain(blob.size() - kNonceSize - kTagSize);
    const Cipher cipher(EVP_CIPHER_CTX_new());
    int size = 0;
    Require(EVP_DecryptInit_ex2(cipher.get(), EVP_aes_256_gcm(), wrappingKey.data(), blob.data(),
                                nullptr) == 1 &&
            EVP_DecryptUpdate(cipher.get(), nullptr, &size,
                              reinterpret_cast<const unsigned char*>(id.data()),
                              static_cast<int>(id.size())) == 1 &&
            EVP_DecryptUpdate(cipher.get(), plain.data(), &size,
                              blob.data() + kNonceSize + kTagSize,
                              static_cast<int>(plain.size())) == 1 &&
            EVP_CIPHER_CTX_ctrl(cipher.get(), EVP_CTRL_AEAD_SET_TAG, kTagSize,
                                blob.data() + kNonceSize) == 1 &&
            EVP_DecryptFinal_ex(cipher.get(), plain.data() + size, &size) == 1);
    return plain;
}

Bytes EncodeKey(EVP_PKEY* key) {
    const Pkcs8 info(EVP_PKEY2PKCS8(key));
    unsigned char* der = nullptr;
    const int size = i2d_PKCS8_PRIV_KEY_INFO(info.get(), &der);
    const openssl_support::OpenSslMemoryPtr owner(der);
    Require(size > 0);
    return {der, der + size};
}

Key DecodeKey(const Bytes& der) {
    const unsigned char* position = der.data();
    const Pkcs8 info(d2i_PKCS8_PRIV_KEY_INFO(nullptr, &position, static_cast<long>(der.size())));
    Key key(EVP_PKCS82PKEY(info.get()));
    Require(key != nullptr);
    return key;
}

Chain ParseChain(const std::string& pem) {
    const Bio bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    Chain chain;
    while (Certificate certificate{PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr)}) {
        chain.push_back(std::move(certificate));
    }
    ERR_clear_error();
    Require(chain.size() == 2);
    return chain;
}

Bytes Sign(EVP_PKEY* key, const std::string& content) {
    Bytes signature(static_cast<std::size_t>(EVP_PKEY_get_size(key)));
    std::size_t size = signature.size();
    const Digest context(EVP_MD_CTX_new());
    Require(EVP_DigestSignInit(context.get(), nullptr, EVP_sha256(), nullptr, key) == 1 &&
            EVP_DigestSign(context.get(), signature.data(), &size,
                           reinterpret_cast<const unsigned char*>(content.data()),
                           content.size()) == 1);
    signature.resize(size);
    return signature;
}

void Verify(EVP_PKEY* key, const Bytes& signature, const std::string& content) {
    const Digest context(EVP_MD_CTX_new());
    Require(EVP_DigestVerifyInit(context.get(), nullptr, EVP_sha256(), nullptr, key) == 1 &&
            EVP_DigestVerify(context.get(), signature.data(), signature.size(),
                             reinterpret_cast<const unsigned char*>(content.data()),
                             content.size()) == 1);
}

Bytes MakeRequest(EVP_PKEY* key, const std::string& commonName) {
    const Request request(X509_REQ_new());
    SetName(X509_REQ_get_subject_name(request.get()), commonName);
    Require(X509_REQ_set_pubkey(request.get(), key) == 1);
    Require(X509_REQ_sign(request.get(), key, EVP_sha256()) > 0);
    unsigned char* der = nullptr;
    const int size = i2d_X509_REQ(request.get(), &der);
    Require(size > 0);
    Bytes bytes(der, der + size);
    OPENSSL_free(der);
    return bytes;
}

std::string MakeContainer(EVP_PKEY* signer, const Chain& signerChain, const Bytes& payload) {
    const unsigned int flags = CMS_BINARY;
    const Bio content(BIO_new_mem_buf(payload.data(), static_cast<int>(payload.size())));
    const Cms cms(CMS_sign(nullptr, nullptr, nullptr, content.get(), flags | CMS_PARTIAL));
    Require(cms != nullptr);
    Require(CMS_add1_signer(cms.get(), signerChain[0].get(), signer, EVP_sha256(), flags) !=
            nullptr);
    Require(CMS_add1_cert(cms.get(), signerChain[1].get()) == 1);
    Require(CMS_final(cms.get(), content.get(), nullptr, flags) == 1);
    const Bio out(BIO_new(BIO_s_mem()));
    Require(PEM_write_bio_CMS_stream(out.get(), cms.get(), nullptr, 0) == 1);
    return Contents(out.get());
}

}  // namespace bare_pass
