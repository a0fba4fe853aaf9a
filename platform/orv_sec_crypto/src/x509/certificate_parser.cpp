#include "x509/certificate_parser.h"

#include <ctime>
#include <string_view>
#include <utility>

#include <openssl/pem.h>

#include "errors/crypto_error.h"
#include "x509/certificate_cache.h"

namespace orv::sec::crypto {

using openssl_support::BioPtr;
using openssl_support::OpenSslMemoryPtr;

using common::ByteVector;
using common::CryptoResultCode;

namespace {

constexpr std::string_view kPemBegin = "-----BEGIN CERTIFICATE-----";
constexpr std::string_view kPemEnd = "-----END CERTIFICATE-----";
constexpr std::string_view kWhiteSpace = " \t\r\n";
constexpr std::uint8_t kDerSequence = 0x30;

CryptoError InvalidFormat(const std::string& why) {
    ForgetOpenSslErrors();
    return CryptoError(CryptoResultCode::kInvalidFormat, why);
}

X509Ptr ParseDer(const unsigned char* bytes, std::size_t size) {
    if (X509Ptr known = CertificateCache::Instance().Find(bytes, size)) {
        return known;
    }
    const unsigned char* position = bytes;
    X509Ptr certificate(d2i_X509(nullptr, &position, static_cast<long>(size)));
    if (certificate == nullptr) {
        throw InvalidFormat("no X.509 certificate");
    }
    if (position != bytes + size) {
        throw InvalidFormat("bytes after the certificate");
    }
    CertificateCache::Instance().Keep(bytes, size, *certificate);
    return certificate;
}

X509Ptr ParsePemBlock(std::string_view block) {
    const BioPtr bio(BIO_new_mem_buf(block.data(), static_cast<int>(block.size())));
    if (bio == nullptr) {
        throw OpenSslError("BIO_new_mem_buf");
    }
    char* name = nullptr;
    char* header = nullptr;
    unsigned char* data = nullptr;
    long size = 0;
    const bool decoded = PEM_read_bio(bio.get(), &name, &header, &data, &size) == 1;
    const OpenSslMemoryPtr nameOwner(name);
    const OpenSslMemoryPtr headerOwner(header);
    const OpenSslMemoryPtr dataOwner(data);
    if (!decoded || header == nullptr || *header != '\0' || size < 0) {
        throw InvalidFormat("no PEM certificate");
    }
    return ParseDer(data, static_cast<std::size_t>(size));
}

std::vector<X509Ptr> ParsePem(std::string_view text) {
    std::vector<X509Ptr> certificates;
    for (auto begin = text.find_first_not_of(kWhiteSpace); begin != std::string_view::npos;
         begin = text.find_first_not_of(kWhiteSpace)) {
        text.remove_prefix(begin);
        const auto end = text.find(kPemEnd);
        if (text.substr(0, kPemBegin.size()) != kPemBegin || end == std::string_view::npos) {
            throw InvalidFormat("something else than PEM certificates");
        }
        if (certificates.size() == kMaxCertificates) {
            throw CryptoError(CryptoResultCode::kTooLarge, "too many certificates");
        }
        certificates.push_back(ParsePemBlock(text.substr(0, end + kPemEnd.size())));
        text.remove_prefix(end + kPemEnd.size());
    }
    if (certificates.empty()) {
        throw InvalidFormat("no certificate");
    }
    return certificates;
}

}  // namespace

std::vector<X509Ptr> ParseCertificates(const ByteVector& bytes) {
    if (bytes.size() > kMaxCertificateBytes) {
        throw CryptoError(CryptoResultCode::kTooLarge, "certificates are too long");
    }
    if (!bytes.empty() && bytes.front() == kDerSequence) {
        std::vector<X509Ptr> certificates;
        certificates.push_back(ParseDer(bytes.data(), bytes.size()));
        return certificates;
    }
    return ParsePem({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

X509Ptr ParseCertificate(const ByteVector& bytes) {
    auto certificates = ParseCertificates(bytes);
    if (certificates.size() != 1) {
        throw InvalidFormat("more than one certificate");
    }
    return std::move(certificates.front());
}

ByteVector EncodeDer(X509& certificate) {
    unsigned char* der = nullptr;
    const int size = i2d_X509(&certificate, &der);
    const OpenSslMemoryPtr owner(der);
    if (size <= 0) {
        throw OpenSslError("cannot encode a certificate");
    }
    return ByteVector(der, der + size);
}

std::string EncodePem(X509& certificate) {
    const BioPtr bio(BIO_new(BIO_s_mem()));
    if (bio == nullptr || PEM_write_bio_X509(bio.get(), &certificate) != 1) {
        throw OpenSslError("cannot encode a certificate");
    }
    char* text = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &text);
    return {text, static_cast<std::size_t>(size)};
}

std::string SubjectCommonName(const X509& certificate) {
    const X509_NAME* subject = X509_get_subject_name(&certificate);
    const int index = X509_NAME_get_index_by_NID(subject, NID_commonName, -1);
    if (index < 0) {
        throw CryptoError(CryptoResultCode::kNotFound, "the subject has no common name");
    }
    if (X509_NAME_get_index_by_NID(subject, NID_commonName, index) >= 0) {
        throw InvalidFormat("the subject has more than one common name");
    }
    unsigned char* text = nullptr;
    const int size =
        ASN1_STRING_to_UTF8(&text, X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, index)));
    const OpenSslMemoryPtr owner(text);
    if (size < 0) {
        throw InvalidFormat("the common name is no text");
    }
    std::string name(reinterpret_cast<const char*>(text), static_cast<std::size_t>(size));
    if (name.empty()) {
        throw CryptoError(CryptoResultCode::kNotFound, "the common name is empty");
    }
    if (name.find('\0') != std::string::npos) {
        throw InvalidFormat("the common name holds a NUL");
    }
    return name;
}

std::int64_t ToEpochSeconds(const ASN1_TIME& time) {
    std::tm utc{};
    if (ASN1_TIME_to_tm(&time, &utc) != 1) {
        throw InvalidFormat("unreadable date");
    }
    return static_cast<std::int64_t>(::timegm(&utc));
}

}  // namespace orv::sec::crypto
