// The bare OpenSSL calls of a forced update, from the trigger to the stored certificate: the
// baseline of the group `pass`, and of the passes in the group `link`. No protocol, no log; the
// backend's part is done outside of the measured time. Each operation is done once, on what a store
// holds: certificates in PEM, private keys in PKCS #8 under AES-256-GCM.
//
// Up to the request:
//   base chain parsed, for the VIN and for the container;
//   the stored certificate judged: chain and root parsed, private key unwrapped, decoded and found
//   to be the certificate's, VIN signed and the signature verified, both signatures of the path
//   verified;
//   key pair made, encoded and wrapped; request signed and encoded;
//   base key unwrapped and decoded; container signed and written as PEM.
// After the answer:
//   chain and root parsed, public key compared, both signatures of the path verified; the key
//   wrapped anew for its new place.
//
// It is all done twice: on a store in memory, and on an SQLite file with the settings of the secure
// store, read by prepared statements and written in two transactions, one before the request and
// one after the answer.

#include <algorithm>
#include <array>
#include <chrono>
#include <ctime>
#include <exception>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include "benchmarks/bare_store.h"
#include "openssl_support/openssl_ptr.h"

namespace {

using bare_pass::FileStore;
using bare_pass::Require;
using bare_pass::Store;
using openssl_support::OpenSslPtr;
using Key = OpenSslPtr<EVP_PKEY, EVP_PKEY_free>;
using Certificate = OpenSslPtr<X509, X509_free>;
using Request = OpenSslPtr<X509_REQ, X509_REQ_free>;
using Cms = OpenSslPtr<CMS_ContentInfo, CMS_ContentInfo_free>;
using Bio = OpenSslPtr<BIO, BIO_free_all>;
using Pkcs8 = OpenSslPtr<PKCS8_PRIV_KEY_INFO, PKCS8_PRIV_KEY_INFO_free>;
using Cipher = OpenSslPtr<EVP_CIPHER_CTX, EVP_CIPHER_CTX_free>;
using Digest = OpenSslPtr<EVP_MD_CTX, EVP_MD_CTX_free>;
using Bytes = std::vector<unsigned char>;

const std::string kVin = "VIN";

Key NewKey() {
    Key key(EVP_EC_gen("P-256"));
    Require(key != nullptr);
    return key;
}

void SetName(X509_NAME* name, const std::string& commonName) {
    Require(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                                       reinterpret_cast<const unsigned char*>(commonName.c_str()),
                                       -1, -1, 0) == 1);
}

Certificate Issue(const std::string& commonName, EVP_PKEY* key, X509* issuer, EVP_PKEY* issuerKey) {
    Certificate certificate(X509_new());
    Require(X509_set_version(certificate.get(), X509_VERSION_3) == 1);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 1);
    SetName(X509_get_subject_name(certificate.get()), commonName);
    X509_set_issuer_name(certificate.get(),
                         X509_get_subject_name(issuer != nullptr ? issuer : certificate.get()));
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), 0);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 86400L * 3650);
    X509_set_pubkey(certificate.get(), key);
    Require(X509_sign(certificate.get(), issuerKey, EVP_sha256()) > 0);
    return certificate;
}

std::string ToPem(X509* certificate) {
    const Bio bio(BIO_new(BIO_s_mem()));
    Require(PEM_write_bio_X509(bio.get(), certificate) == 1);
    char* data = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &data);
    return {data, static_cast<std::size_t>(size)};
}

Certificate FromPem(const std::string& pem) {
    const Bio bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    Certificate certificate(PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr));
    Require(certificate != nullptr);
    return certificate;
}

constexpr int kNonceSize = 12;
constexpr int kTagSize = 16;
using WrappingKey = std::array<unsigned char, 32>;

/// Nonce, tag and ciphertext of the key in PKCS #8 (RFC 5958), bound to the id by AES-256-GCM.
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

/// What stands in the unit and at the backend before the pass.
struct World {
    explicit World(Store& unit) : store(unit) {
        const Key rootKey = NewKey();
        const Key baseKey = NewKey();
        const Key oldKey = NewKey();
        const Certificate root = Issue("root", rootKey.get(), nullptr, rootKey.get());
        ca = Issue("ca", caKey.get(), root.get(), rootKey.get());
        Require(RAND_bytes(wrappingKey.data(), static_cast<int>(wrappingKey.size())) == 1);
        store.Put({{"root", ToPem(root.get())},
                   {"base", IssueChain(baseKey.get())},
                   {"base key", Wrap(wrappingKey, "base key", EncodeKey(baseKey.get()))},
                   {"client", IssueChain(oldKey.get())},
                   {"client key", Wrap(wrappingKey, "client key", EncodeKey(oldKey.get()))}});
    }

    std::string IssueChain(EVP_PKEY* key) const {
        return ToPem(Issue(kVin + ":C003", key, ca.get(), caKey.get()).get()) + ToPem(ca.get());
    }

    Bytes UnwrapKey(const std::string& id) const { return Unwrap(wrappingKey, id, store.Get(id)); }

    Store& store;
    WrappingKey wrappingKey{};
    Key caKey = NewKey();
    Certificate ca;
};

using Chain = std::vector<Certificate>;

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

/// Names and key are the caller's; here each signature of the path.
void CheckPath(World& world, const Chain& chain) {
    const Certificate root = FromPem(world.store.Get("root"));
    Require(X509_verify(chain[0].get(), X509_get0_pubkey(chain[1].get())) == 1);
    Require(X509_verify(chain[1].get(), X509_get0_pubkey(root.get())) == 1);
}

void CheckPossession(EVP_PKEY* privateKey, EVP_PKEY* publicKey) {
    const auto* content = reinterpret_cast<const unsigned char*>(kVin.data());
    Bytes signature(static_cast<std::size_t>(EVP_PKEY_get_size(privateKey)));
    std::size_t size = signature.size();
    const Digest signing(EVP_MD_CTX_new());
    Require(EVP_DigestSignInit(signing.get(), nullptr, EVP_sha256(), nullptr, privateKey) == 1 &&
            EVP_DigestSign(signing.get(), signature.data(), &size, content, kVin.size()) == 1);
    const Digest verifying(EVP_MD_CTX_new());
    Require(EVP_DigestVerifyInit(verifying.get(), nullptr, EVP_sha256(), nullptr, publicKey) == 1 &&
            EVP_DigestVerify(verifying.get(), signature.data(), size, content, kVin.size()) == 1);
}

void JudgeStoredCertificate(World& world) {
    const Chain chain = ParseChain(world.store.Get("client"));
    const Key key = DecodeKey(world.UnwrapKey("client key"));
    EVP_PKEY* const certified = X509_get0_pubkey(chain.front().get());
    Require(EVP_PKEY_eq(certified, key.get()) == 1);
    CheckPossession(key.get(), certified);
    CheckPath(world, chain);
}

Bytes MakeRequest(EVP_PKEY* key) {
    const Request request(X509_REQ_new());
    SetName(X509_REQ_get_subject_name(request.get()), kVin + ":C003");
    Require(X509_REQ_set_pubkey(request.get(), key) == 1);
    Require(X509_REQ_sign(request.get(), key, EVP_sha256()) > 0);
    unsigned char* der = nullptr;
    const int size = i2d_X509_REQ(request.get(), &der);
    Require(size > 0);
    Bytes bytes(der, der + size);
    OPENSSL_free(der);
    return bytes;
}

void MakeContainer(World& world, const Chain& baseChain, const Bytes& payload) {
    const unsigned int flags = CMS_BINARY;
    const Key key = DecodeKey(world.UnwrapKey("base key"));
    const Bio content(BIO_new_mem_buf(payload.data(), static_cast<int>(payload.size())));
    const Cms cms(CMS_sign(nullptr, nullptr, nullptr, content.get(), flags | CMS_PARTIAL));
    Require(cms != nullptr);
    Require(CMS_add1_signer(cms.get(), baseChain[0].get(), key.get(), EVP_sha256(), flags) !=
            nullptr);
    Require(CMS_add1_cert(cms.get(), baseChain[1].get()) == 1);
    Require(CMS_final(cms.get(), content.get(), nullptr, flags) == 1);
    const Bio out(BIO_new(BIO_s_mem()));
    Require(PEM_write_bio_CMS_stream(out.get(), cms.get(), nullptr, 0) == 1);
}

/// All that comes before the first byte to the backend; the key that the request is for.
Key PrepareRequest(World& world) {
    const Chain baseChain = ParseChain(world.store.Get("base"));
    JudgeStoredCertificate(world);
    Key key = NewKey();
    world.store.Put(
        {{"pending key", Wrap(world.wrappingKey, "pending key", EncodeKey(key.get()))}});
    MakeContainer(world, baseChain, MakeRequest(key.get()));
    return key;
}

void AcceptAnswer(World& world, EVP_PKEY* key, const std::string& chainPem) {
    const Chain chain = ParseChain(chainPem);
    Require(EVP_PKEY_eq(X509_get0_pubkey(chain.front().get()), key) == 1);
    CheckPath(world, chain);
    world.store.Put(
        {{"client", chainPem},
         {"client key", Wrap(world.wrappingKey, "client key", world.UnwrapKey("pending key"))}});
}

double Seconds(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values.at(values.size() / 2);
}

/// Peak resident memory of this program alone: `ru_maxrss` would count that of the one that
/// started it, too.
long PeakKib() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmHWM:", 0) == 0) {
            return std::stol(line.substr(line.find_first_of("0123456789")));
        }
    }
    throw std::runtime_error("no VmHWM in /proc/self/status");
}

/// Wall and CPU time, in milliseconds.
struct Spent {
    double wall{Seconds(CLOCK_MONOTONIC) * 1e3};
    double cpu{Seconds(CLOCK_PROCESS_CPUTIME_ID) * 1e3};
};

Spent Since(const Spent& start) {
    const Spent now;
    return {now.wall - start.wall, now.cpu - start.cpu};
}

/// The medians of the passes on a store.
nlohmann::json Measure(Store& store, int rounds, std::chrono::milliseconds pause) {
    World world(store);
    std::map<std::string, std::vector<double>> samples;
    for (int round = 0; round < rounds; ++round) {
        // As in a service that idles between its passes.
        std::this_thread::sleep_for(pause);
        const Spent start;
        const Key key = PrepareRequest(world);
        const Spent request = Since(start);
        const std::string chain = world.IssueChain(key.get());
        const Spent answer;
        AcceptAnswer(world, key.get(), chain);
        const Spent check = Since(answer);
        samples["request_wall_ms"].push_back(request.wall);
        samples["request_cpu_ms"].push_back(request.cpu);
        samples["wall_ms"].push_back(request.wall + check.wall);
        samples["cpu_ms"].push_back(request.cpu + check.cpu);
    }
    nlohmann::json medians;
    for (const auto& [name, values] : samples) {
        medians[name] = Median(values);
    }
    return medians;
}

}  // namespace

int main(int argc, char* argv[]) {
    try {
        CLI::App app("The bare OpenSSL calls of one pass, timed");
        int rounds = 7;
        int pause = 50;
        std::string directory;
        app.add_option("--rounds", rounds, "Passes to time")->check(CLI::Range(1, 100000));
        app.add_option("--pause", pause, "Idle milliseconds before each")
            ->check(CLI::Range(0, 10000));
        app.add_option("--directory", directory, "An empty one, for the file of the store")
            ->required();
        CLI11_PARSE(app, argc, argv);
        Store memory;
        nlohmann::json result{{"memory", Measure(memory, rounds, std::chrono::milliseconds(pause))},
                              {"peak_kib", PeakKib()}};
        FileStore file(directory + "/bare-store.db");
        result["file"] = Measure(file, rounds, std::chrono::milliseconds(pause));
        std::cout << result << std::endl;
        return 0;
    } catch (const std::exception& exception) {
        std::cerr << exception.what() << std::endl;
        return 1;
    }
}
