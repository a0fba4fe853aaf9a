#include "simulator/backend/container.h"

#include <algorithm>
#include <string>
#include <string_view>

#include <openssl/cms.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509_vfy.h>

#include <pki_support/pki_error.h>

#include "simulator/backend/refusal.h"

namespace simulator::backend {

namespace {

using openssl_support::BioPtr;
using openssl_support::CmsPtr;
using openssl_support::OpenSslMemoryPtr;
using openssl_support::OpenSslPtr;
using openssl_support::X509Ptr;
using StorePtr = OpenSslPtr<X509_STORE, X509_STORE_free>;

/// Releases the stack only; the certificates belong to the container.
void FreeStack(STACK_OF(X509) * certificates) {
    sk_X509_free(certificates);
}

constexpr unsigned kBadRequest = 400;
constexpr unsigned kForbidden = 403;
constexpr const char* kPemLabel = "CMS";
constexpr std::string_view kPemBegin = "-----BEGIN CMS-----";
/// At least 112 bits of security in keys and signatures.
constexpr int kSecurityLevel = 2;

/// The last OpenSSL error, which names why a certificate was refused.
std::string TakeError() {
    const char* data = nullptr;
    int flags = 0;
    const unsigned long code = ERR_peek_last_error_all(nullptr, nullptr, nullptr, &data, &flags);
    const char* reason = ERR_reason_error_string(code);
    std::string text = reason == nullptr ? "unknown error" : reason;
    if (data != nullptr && *data != '\0' && (flags & ERR_TXT_STRING) != 0) {
        text += std::string(" (") + data + ")";
    }
    ERR_clear_error();
    return text;
}

/// Whether nothing follows the PEM block that was read.
bool OnlyLineEndsLeft(BIO& bio) {
    char* rest = nullptr;
    const long size = BIO_get_mem_data(&bio, &rest);
    const std::string_view text(rest, static_cast<std::size_t>(std::max(size, 0L)));
    return text.find_first_not_of("\r\n") == std::string_view::npos;
}

CmsPtr ParseContainer(const std::string& pem) {
    const BioPtr bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    char* name = nullptr;
    char* header = nullptr;
    unsigned char* data = nullptr;
    long size = 0;
    const bool isPem = bio != nullptr && PEM_read_bio(bio.get(), &name, &header, &data, &size) == 1;
    const OpenSslMemoryPtr nameOwner(name);
    const OpenSslMemoryPtr headerOwner(header);
    const OpenSslMemoryPtr dataOwner(data);
    if (!isPem || std::string(name) != kPemLabel || std::string(header) != "" ||
        pem.compare(0, kPemBegin.size(), kPemBegin) != 0 || !OnlyLineEndsLeft(*bio)) {
        ERR_clear_error();
        throw Refusal(kBadRequest, "the container is no CMS in PEM, or not that alone");
    }
    const unsigned char* position = data;
    CmsPtr cms(d2i_CMS_ContentInfo(nullptr, &position, size));
    if (cms == nullptr || position != data + size) {
        ERR_clear_error();
        throw Refusal(kBadRequest, "the container does not parse");
    }
    return cms;
}

void CheckForm(CMS_ContentInfo& cms) {
    if (OBJ_obj2nid(CMS_get0_type(&cms)) != NID_pkcs7_signed ||
        OBJ_obj2nid(CMS_get0_eContentType(&cms)) != NID_pkcs7_data) {
        throw Refusal(kBadRequest, "the container is no signed data");
    }
    STACK_OF(CMS_SignerInfo)* signers = CMS_get0_SignerInfos(&cms);
    if (sk_CMS_SignerInfo_num(signers) != 1) {
        throw Refusal(kBadRequest, "the container has not exactly one signature");
    }
    X509_ALGOR* digest = nullptr;
    CMS_SignerInfo_get0_algs(sk_CMS_SignerInfo_value(signers, 0), nullptr, nullptr, &digest,
                             nullptr);
    const int nid = OBJ_obj2nid(digest->algorithm);
    if (nid != NID_sha256 && nid != NID_sha384 && nid != NID_sha512) {
        throw Refusal(kForbidden, "the container's hash is too weak or unknown");
    }
}

StorePtr MakeStore(X509& root, std::chrono::system_clock::time_point now) {
    StorePtr store(X509_STORE_new());
    if (store == nullptr || X509_STORE_add_cert(store.get(), &root) != 1) {
        throw pki_support::PkiError("cannot make a certificate store");
    }
    X509_VERIFY_PARAM* parameters = X509_STORE_get0_param(store.get());
    X509_VERIFY_PARAM_set_time(parameters, std::chrono::system_clock::to_time_t(now));
    X509_VERIFY_PARAM_set_auth_level(parameters, kSecurityLevel);
    return store;
}

X509Ptr TakeSigner(CMS_ContentInfo& cms) {
    const OpenSslPtr<STACK_OF(X509), FreeStack> signers(CMS_get0_signers(&cms));
    X509* signer = signers == nullptr ? nullptr : sk_X509_value(signers.get(), 0);
    if (signer == nullptr || X509_up_ref(signer) != 1) {
        throw pki_support::PkiError("the container lost its signer");
    }
    return X509Ptr(signer);
}

}  // namespace

ContainerContent OpenContainer(const std::string& pem, X509& factoryRoot,
                               std::chrono::system_clock::time_point now) {
    const CmsPtr cms = ParseContainer(pem);
    CheckForm(*cms);
    const StorePtr store = MakeStore(factoryRoot, now);
    const BioPtr content(BIO_new(BIO_s_mem()));
    if (content == nullptr ||
        CMS_verify(cms.get(), nullptr, store.get(), nullptr, content.get(), CMS_BINARY) != 1) {
        throw Refusal(kForbidden, "the container does not verify: " + TakeError());
    }
    char* payload = nullptr;
    const long size = BIO_get_mem_data(content.get(), &payload);
    return {std::string(payload, static_cast<std::size_t>(size)), TakeSigner(*cms)};
}

}  // namespace simulator::backend
