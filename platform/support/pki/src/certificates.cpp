#include <array>
#include <ctime>
#include <iomanip>
#include <sstream>

#include <openssl/err.h>
#include <openssl/pem.h>

#include <pki_support/certificates.h>
#include <pki_support/pki_error.h>

namespace pki_support {

using openssl_support::BioPtr;
using openssl_support::OpenSslMemoryPtr;

namespace {

constexpr std::size_t kMaxCertificates = 16;
constexpr int kCaByBasicConstraints = 1;

[[noreturn]] void Fail(const char* what) {
    ERR_clear_error();
    throw PkiError(what);
}

BioPtr Reader(const std::string& text) {
    BioPtr bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
    if (bio == nullptr) {
        Fail("out of memory");
    }
    return bio;
}

/// The text that `write` puts into a BIO. The memory is wiped: it may be a key.
template <typename Write>
std::string Written(Write write) {
    const BioPtr bio(BIO_new(BIO_s_secmem()));
    if (bio == nullptr || write(bio.get()) < 0) {
        Fail("cannot encode");
    }
    char* text = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &text);
    return {text, static_cast<std::size_t>(size)};
}

int RefuseToAsk(char* /*buffer*/, int /*size*/, int /*isWriting*/, void* /*context*/) {
    return -1;
}

std::string ToText(const std::tm& utc) {
    std::ostringstream text;
    text << std::put_time(&utc, "%Y-%m-%dT%H:%M:%SZ");
    return text.str();
}

}  // namespace

std::vector<X509Ptr> ReadCertificates(const std::string& pem) {
    const BioPtr bio = Reader(pem);
    std::vector<X509Ptr> certificates;
    while (X509Ptr certificate{PEM_read_bio_X509(bio.get(), nullptr, RefuseToAsk, nullptr)}) {
        if (certificates.size() == kMaxCertificates) {
            Fail("too many certificates");
        }
        certificates.push_back(std::move(certificate));
    }
    if (ERR_GET_REASON(ERR_peek_last_error()) != PEM_R_NO_START_LINE) {
        Fail("a certificate cannot be read");
    }
    if (certificates.empty()) {
        Fail("no PEM certificate");
    }
    ERR_clear_error();
    return certificates;
}

PkeyPtr ReadPrivateKey(const std::string& pem) {
    PkeyPtr key(PEM_read_bio_PrivateKey(Reader(pem).get(), nullptr, RefuseToAsk, nullptr));
    if (key == nullptr) {
        Fail("no readable, unencrypted PEM private key");
    }
    return key;
}

std::string ToPem(X509& certificate) {
    return Written(
        [&certificate](BIO* bio) { return PEM_write_bio_X509(bio, &certificate) == 1 ? 0 : -1; });
}

std::string ToPem(const std::vector<X509Ptr>& certificates) {
    std::string pem;
    for (const X509Ptr& certificate : certificates) {
        pem += ToPem(*certificate);
    }
    return pem;
}

std::string ToPem(EVP_PKEY& privateKey) {
    return Written([&privateKey](BIO* bio) {
        const int result =
            PEM_write_bio_PKCS8PrivateKey(bio, &privateKey, nullptr, nullptr, 0, nullptr, nullptr);
        return result == 1 ? 0 : -1;
    });
}

std::string PublicKeyToPem(const std::string& der) {
    const auto* position = reinterpret_cast<const unsigned char*>(der.data());
    const PkeyPtr key(d2i_PUBKEY(nullptr, &position, static_cast<long>(der.size())));
    if (key == nullptr) {
        Fail("no public key");
    }
    return Written([&key](BIO* bio) { return PEM_write_bio_PUBKEY(bio, key.get()) == 1 ? 0 : -1; });
}

std::string CommonName(const X509_NAME& name) {
    const int index = X509_NAME_get_index_by_NID(&name, NID_commonName, -1);
    if (index < 0 || X509_NAME_get_index_by_NID(&name, NID_commonName, index) >= 0) {
        return {};
    }
    unsigned char* text = nullptr;
    const int size =
        ASN1_STRING_to_UTF8(&text, X509_NAME_ENTRY_get_data(X509_NAME_get_entry(&name, index)));
    const OpenSslMemoryPtr owner(text);
    if (size < 0) {
        ERR_clear_error();
        return {};
    }
    std::string commonName(reinterpret_cast<const char*>(text), static_cast<std::size_t>(size));
    return commonName.find('\0') == std::string::npos ? commonName : std::string();
}

std::string ToText(const X509_NAME& name) {
    return Written(
        [&name](BIO* bio) { return X509_NAME_print_ex(bio, &name, 0, XN_FLAG_RFC2253); });
}

std::string ToText(const ASN1_TIME& time) {
    std::tm utc{};
    if (ASN1_TIME_to_tm(&time, &utc) != 1) {
        Fail("unreadable date");
    }
    return ToText(utc);
}

std::string ToText(std::chrono::system_clock::time_point time) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm utc{};
    if (::gmtime_r(&seconds, &utc) == nullptr) {
        Fail("unreadable date");
    }
    return ToText(utc);
}

std::string Fingerprint(const X509& certificate) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int size = 0;
    if (X509_digest(&certificate, EVP_sha256(), digest.data(), &size) != 1) {
        Fail("cannot digest a certificate");
    }
    std::ostringstream text;
    text << std::hex << std::setfill('0');
    for (unsigned int index = 0; index < size; ++index) {
        text << std::setw(2) << static_cast<unsigned int>(digest.at(index));
    }
    return text.str();
}

bool HasPublicKey(const X509& certificate, const EVP_PKEY& key) {
    const EVP_PKEY* certified = X509_get0_pubkey(&certificate);
    const bool isEqual = certified != nullptr && EVP_PKEY_eq(certified, &key) == 1;
    ERR_clear_error();
    return isEqual;
}

bool IsCa(X509& certificate) {
    return X509_check_ca(&certificate) == kCaByBasicConstraints &&
           (X509_get_key_usage(&certificate) & KU_KEY_CERT_SIGN) != 0;
}

std::string FindChainFault(const std::vector<X509Ptr>& chain) {
    for (std::size_t index = 0; index + 1 < chain.size(); ++index) {
        X509& subject = *chain[index];
        X509& issuer = *chain[index + 1];
        const std::string pair = "certificate " + std::to_string(index + 2) + " of the chain ";
        if (!IsCa(issuer)) {
            return pair + "is no CA";
        }
        const bool isIssuer = X509_check_issued(&issuer, &subject) == X509_V_OK &&
                              X509_verify(&subject, X509_get0_pubkey(&issuer)) == 1;
        ERR_clear_error();
        if (!isIssuer) {
            return pair + "has not issued the one before it";
        }
    }
    return {};
}

}  // namespace pki_support
