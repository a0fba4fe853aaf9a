// The bare OpenSSL calls of one pass from ignition to the stored certificate: the baseline of the
// group `pass`. No store, no protocol, no log; certificates are made before the clock starts.

#include <algorithm>
#include <chrono>
#include <ctime>
#include <exception>
#include <fstream>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include "openssl_support/openssl_ptr.h"

namespace {

using openssl_support::OpenSslPtr;
using Key = OpenSslPtr<EVP_PKEY, EVP_PKEY_free>;
using Certificate = OpenSslPtr<X509, X509_free>;
using Request = OpenSslPtr<X509_REQ, X509_REQ_free>;
using Cms = OpenSslPtr<CMS_ContentInfo, CMS_ContentInfo_free>;
using Bio = OpenSslPtr<BIO, BIO_free_all>;

void Require(bool good) {
    if (!good) {
        throw std::runtime_error("an OpenSSL call failed");
    }
}

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

/// What stands in the unit and at the backend before the pass, and what the backend answers.
struct World {
    Key rootKey = NewKey();
    Key caKey = NewKey();
    Key baseKey = NewKey();
    Certificate root = Issue("root", rootKey.get(), nullptr, rootKey.get());
    Certificate ca = Issue("ca", caKey.get(), root.get(), rootKey.get());
    Certificate base = Issue("VIN:C003", baseKey.get(), ca.get(), caKey.get());
    std::string rootPem = ToPem(root.get());
    std::string caPem = ToPem(ca.get());
    std::string basePem = ToPem(base.get());
};

std::vector<unsigned char> MakeRequest(EVP_PKEY* key) {
    const Request request(X509_REQ_new());
    SetName(X509_REQ_get_subject_name(request.get()), "VIN:C003");
    Require(X509_REQ_set_pubkey(request.get(), key) == 1);
    Require(X509_REQ_sign(request.get(), key, EVP_sha256()) > 0);
    unsigned char* der = nullptr;
    const int size = i2d_X509_REQ(request.get(), &der);
    Require(size > 0);
    std::vector<unsigned char> bytes(der, der + size);
    OPENSSL_free(der);
    return bytes;
}

void MakeContainer(const World& world, const std::vector<unsigned char>& payload) {
    const unsigned int flags = CMS_BINARY;
    const Bio content(BIO_new_mem_buf(payload.data(), static_cast<int>(payload.size())));
    const Cms cms(CMS_sign(nullptr, nullptr, nullptr, content.get(), flags | CMS_PARTIAL));
    Require(cms != nullptr);
    Require(CMS_add1_signer(cms.get(), world.base.get(), world.baseKey.get(), EVP_sha256(),
                            flags) != nullptr);
    Require(CMS_add1_cert(cms.get(), world.ca.get()) == 1);
    Require(CMS_final(cms.get(), content.get(), nullptr, flags) == 1);
    const Bio out(BIO_new(BIO_s_mem()));
    Require(PEM_write_bio_CMS_stream(out.get(), cms.get(), nullptr, 0) == 1);
}

/// Checks the answer as the client does: names, key, and each signature of the path.
void CheckChain(const World& world, EVP_PKEY* key, const std::string& leafPem) {
    const Certificate leaf = FromPem(leafPem);
    const Certificate ca = FromPem(world.caPem);
    const Certificate root = FromPem(world.rootPem);
    Require(EVP_PKEY_eq(X509_get0_pubkey(leaf.get()), key) == 1);
    Require(X509_verify(leaf.get(), X509_get0_pubkey(ca.get())) == 1);
    Require(X509_verify(ca.get(), X509_get0_pubkey(root.get())) == 1);
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

/// Times the passes and prints the medians.
void Run(int rounds) {
    const World world;
    std::vector<double> wall;
    std::vector<double> cpu;
    for (int round = 0; round < rounds; ++round) {
        // The backend signs outside of the measured time, with a key made inside of it.
        const double wallStart = Seconds(CLOCK_MONOTONIC);
        const double cpuStart = Seconds(CLOCK_PROCESS_CPUTIME_ID);
        FromPem(world.basePem);
        const Key key = NewKey();
        MakeContainer(world, MakeRequest(key.get()));
        const double wallMiddle = Seconds(CLOCK_MONOTONIC);
        const double cpuMiddle = Seconds(CLOCK_PROCESS_CPUTIME_ID);
        const std::string leafPem =
            ToPem(Issue("VIN:C003", key.get(), world.ca.get(), world.caKey.get()).get());
        const double wallAgain = Seconds(CLOCK_MONOTONIC);
        const double cpuAgain = Seconds(CLOCK_PROCESS_CPUTIME_ID);
        CheckChain(world, key.get(), leafPem);
        wall.push_back(wallMiddle - wallStart + Seconds(CLOCK_MONOTONIC) - wallAgain);
        cpu.push_back(cpuMiddle - cpuStart + Seconds(CLOCK_PROCESS_CPUTIME_ID) - cpuAgain);
    }
    std::cout << nlohmann::json{{"wall_ms", Median(wall) * 1e3},
                                {"cpu_ms", Median(cpu) * 1e3},
                                {"peak_kib", PeakKib()}}
              << std::endl;
}

}  // namespace

int main(int argc, char* argv[]) {
    try {
        CLI::App app("The bare OpenSSL calls of one pass, timed");
        int rounds = 101;
        app.add_option("--rounds", rounds, "Passes to time")->check(CLI::Range(1, 100000));
        CLI11_PARSE(app, argc, argv);
        Run(rounds);
        return 0;
    } catch (const std::exception& exception) {
        std::cerr << exception.what() << std::endl;
        return 1;
    }
}
