#include "cms_container.h"

#include <array>
#include <cstddef>

#include <openssl/asn1.h>
#include <openssl/err.h>

#include "tive_error.h"

namespace orv::sec::tive {

using openssl_support::BioPtr;
using openssl_support::CmsPtr;
using openssl_support::OpenSslMemoryPtr;
using openssl_support::OpenSslPtr;

namespace {

// Frees the elements, too.
void FreeAsn1Sequence(ASN1_SEQUENCE_ANY* elements) noexcept {
    sk_ASN1_TYPE_pop_free(elements, ASN1_TYPE_free);
}

using ObjectPtr = OpenSslPtr<ASN1_OBJECT, ASN1_OBJECT_free>;
using Asn1TypePtr = OpenSslPtr<ASN1_TYPE, ASN1_TYPE_free>;
using Asn1SequencePtr = OpenSslPtr<ASN1_SEQUENCE_ANY, FreeAsn1Sequence>;
using Asn1StringPtr = OpenSslPtr<ASN1_STRING, ASN1_STRING_free>;

constexpr std::size_t kMaxPayloadBytes = std::size_t{1024} * 1024;
constexpr std::size_t kMaxAuxiliaryBytes = std::size_t{64} * 1024;
constexpr unsigned int kFlags = CMS_PARTIAL | CMS_BINARY | CMS_NOSMIMECAP;

void Require(bool condition, TIVEResultCode code, const char* what) {
    if (condition) {
        return;
    }
    std::array<char, 256> reason{};
    ERR_error_string_n(ERR_peek_last_error(), reason.data(), reason.size());
    ERR_clear_error();
    throw TiveError(code, std::string(what) + ": " + reason.data());
}

bool IsEmpty(const AuxiliaryData& auxiliaryData) {
    return auxiliaryData.type.empty() && auxiliaryData.version == 0 && auxiliaryData.data.empty() &&
           auxiliaryData.description.empty();
}

void CheckSizes(const std::vector<std::uint8_t>& payload, const AuxiliaryData& auxiliaryData) {
    if (payload.size() > kMaxPayloadBytes ||
        auxiliaryData.type.size() + auxiliaryData.data.size() + auxiliaryData.description.size() >
            kMaxAuxiliaryBytes) {
        throw TiveError(TIVEResultCode::kTooLarge,
                        "the payload or the auxiliary data are too long");
    }
}

void Append(ASN1_SEQUENCE_ANY& sequence, int type, Asn1StringPtr value) {
    Asn1TypePtr element(ASN1_TYPE_new());
    Require(element != nullptr && value != nullptr, TIVEResultCode::kEncodingFailed,
            "auxiliary data");
    ASN1_TYPE_set(element.get(), type, value.release());
    Require(sk_ASN1_TYPE_push(&sequence, element.get()) > 0, TIVEResultCode::kEncodingFailed,
            "auxiliary data");
    static_cast<void>(element.release());
}

template <typename Bytes>
Asn1StringPtr MakeString(int type, const Bytes& bytes) {
    Asn1StringPtr text(ASN1_STRING_type_new(type));
    Require(text != nullptr &&
                ASN1_STRING_set(text.get(), bytes.data(), static_cast<int>(bytes.size())) == 1,
            TIVEResultCode::kEncodingFailed, "auxiliary data");
    return text;
}

Asn1StringPtr MakeInteger(std::uint32_t number) {
    Asn1StringPtr integer(ASN1_INTEGER_new());
    Require(integer != nullptr && ASN1_INTEGER_set_uint64(integer.get(), number) == 1,
            TIVEResultCode::kEncodingFailed, "auxiliary data");
    return integer;
}

void AddAuxiliaryData(CMS_SignerInfo& signer, const AuxiliaryData& auxiliaryData) {
    const Asn1SequencePtr sequence(sk_ASN1_TYPE_new_null());
    Require(sequence != nullptr, TIVEResultCode::kEncodingFailed, "auxiliary data");
    Append(*sequence, V_ASN1_UTF8STRING, MakeString(V_ASN1_UTF8STRING, auxiliaryData.type));
    Append(*sequence, V_ASN1_INTEGER, MakeInteger(auxiliaryData.version));
    Append(*sequence, V_ASN1_OCTET_STRING, MakeString(V_ASN1_OCTET_STRING, auxiliaryData.data));
    Append(*sequence, V_ASN1_UTF8STRING, MakeString(V_ASN1_UTF8STRING, auxiliaryData.description));

    unsigned char* der = nullptr;
    const int size = i2d_ASN1_SEQUENCE_ANY(sequence.get(), &der);
    const OpenSslMemoryPtr owner(der);
    const ObjectPtr oid(OBJ_txt2obj(kAuxiliaryDataOid, 1));
    Require(size > 0 && oid != nullptr &&
                CMS_signed_add1_attr_by_OBJ(&signer, oid.get(), V_ASN1_SEQUENCE, der, size) == 1,
            TIVEResultCode::kEncodingFailed, "auxiliary data");
}

}  // namespace

std::string MakeCmsContainer(const std::vector<std::uint8_t>& payload,
                             const AuxiliaryData& auxiliaryData, EVP_PKEY& key,
                             const std::vector<X509Ptr>& chain) {
    CheckSizes(payload, auxiliaryData);
    const CmsPtr cms(CMS_sign(nullptr, nullptr, nullptr, nullptr, kFlags));
    Require(cms != nullptr, TIVEResultCode::kEncodingFailed, "CMS_sign");
    // It attaches the signer's certificate, too.
    CMS_SignerInfo* signer =
        CMS_add1_signer(cms.get(), chain.front().get(), &key, EVP_sha256(), kFlags);
    Require(signer != nullptr, TIVEResultCode::kSigningFailed, "CMS_add1_signer");
    for (std::size_t index = 1; index < chain.size(); ++index) {
        Require(CMS_add1_cert(cms.get(), chain[index].get()) == 1, TIVEResultCode::kEncodingFailed,
                "CMS_add1_cert");
    }
    if (!IsEmpty(auxiliaryData)) {
        AddAuxiliaryData(*signer, auxiliaryData);
    }
    // A buffer must not be null, even of no size.
    const void* bytes = payload.empty() ? static_cast<const void*>("") : payload.data();
    const BioPtr content(BIO_new_mem_buf(bytes, static_cast<int>(payload.size())));
    Require(content != nullptr && CMS_final(cms.get(), content.get(), nullptr, kFlags) == 1,
            TIVEResultCode::kSigningFailed, "CMS_final");

    const BioPtr output(BIO_new(BIO_s_mem()));
    Require(output != nullptr && PEM_write_bio_CMS_stream(output.get(), cms.get(), nullptr, 0) == 1,
            TIVEResultCode::kEncodingFailed, "PEM_write_bio_CMS_stream");
    char* text = nullptr;
    const long size = BIO_get_mem_data(output.get(), &text);
    return {text, static_cast<std::size_t>(size)};
}

}  // namespace orv::sec::tive
