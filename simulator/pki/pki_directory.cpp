#include "simulator/pki/pki_directory.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <utility>

#include <openssl/err.h>
#include <sys/stat.h>
#include <unistd.h>

#include <pki_support/certificates.h>
#include <pki_support/file_access.h>
#include <pki_support/pki_error.h>
#include <pki_support/vehicle_identity.h>

namespace simulator::pki {

namespace {

using TimePoint = std::chrono::system_clock::time_point;

constexpr mode_t kDirectoryMode = 0755;
constexpr const char* kFactoryRoot = "factory-root";
constexpr const char* kFactoryCa = "factory-ca";
constexpr const char* kProductRoot = "product-root";
constexpr const char* kProductCa = "product-ca";

constexpr int kRootYears = 30;
constexpr int kCaYears = 25;
constexpr int kUnitYears = 20;

/// From a day ago, for clocks that are behind.
Validity Years(TimePoint now, int years) {
    constexpr std::chrono::hours kDay(24);
    return {now - kDay, now + kDay * 365 * years};
}

std::string PathOf(const std::string& directory, const char* name, const char* extension) {
    return (std::filesystem::path(directory) / name).string() + extension;
}

void Save(const std::string& directory, const char* name, const Authority& authority) {
    pki_support::WriteFile(PathOf(directory, name, ".pem"),
                           pki_support::ToPem(authority.Certificate()), pki_support::kPublicMode);
    pki_support::WriteFile(PathOf(directory, name, ".key"), pki_support::ToPem(authority.Key()),
                           pki_support::kSecretMode);
}

void SaveAll(const std::string& directory, TimePoint now) {
    const Validity rootValidity = Years(now, kRootYears);
    const Validity caValidity = Years(now, kCaYears);
    const Authority factoryRoot = Authority::CreateRoot("Factory Root", rootValidity);
    const Authority productRoot = Authority::CreateRoot("Product Root", rootValidity);
    Save(directory, kFactoryRoot, factoryRoot);
    Save(directory, kFactoryCa, factoryRoot.CreateIssuing("Factory CA", caValidity));
    Save(directory, kProductRoot, productRoot);
    Save(directory, kProductCa, productRoot.CreateIssuing("Product CA", caValidity));
}

X509Ptr LoadCertificate(const std::string& path) {
    auto certificates = pki_support::ReadCertificates(pki_support::ReadFile(path));
    if (certificates.size() != 1) {
        throw pki_support::PkiError("not exactly one certificate");
    }
    return std::move(certificates.front());
}

PkeyPtr LoadKey(const std::string& path) {
    const pki_support::SecretText pem(pki_support::ReadFile(path));
    return pki_support::ReadPrivateKey(pem.text);
}

Authority Load(const std::string& directory, const char* name) {
    try {
        return {LoadCertificate(PathOf(directory, name, ".pem")),
                LoadKey(PathOf(directory, name, ".key"))};
    } catch (const pki_support::PkiError& error) {
        throw pki_support::PkiError(directory + ": " + name + ": " + error.what());
    }
}

void CheckIssued(const Authority& issuer, const Authority& subject) {
    const bool isIssued =
        X509_check_issued(&issuer.Certificate(), &subject.Certificate()) == X509_V_OK &&
        X509_verify(&subject.Certificate(), &issuer.Key()) == 1;
    ERR_clear_error();
    if (!isIssued) {
        throw pki_support::PkiError(
            pki_support::ToText(*X509_get_subject_name(&subject.Certificate())) +
            " is not issued by " +
            pki_support::ToText(*X509_get_subject_name(&issuer.Certificate())));
    }
}

}  // namespace

void CreatePki(const std::string& directory, TimePoint now) {
    const auto target = std::filesystem::absolute(directory).lexically_normal();
    const auto name = target.has_filename() ? target : target.parent_path();
    std::string temporary = name.string() + ".XXXXXX";
    if (::mkdtemp(temporary.data()) == nullptr) {
        throw pki_support::PkiError(directory + ": " + std::generic_category().message(errno));
    }
    try {
        SaveAll(temporary, now);
        // It replaces an empty directory only.
        if (::chmod(temporary.c_str(), kDirectoryMode) != 0 ||
            ::rename(temporary.c_str(), name.c_str()) != 0) {
            throw pki_support::PkiError(directory + ": " + std::generic_category().message(errno));
        }
    } catch (...) {
        std::error_code ignored;
        std::filesystem::remove_all(temporary, ignored);
        throw;
    }
}

Pki LoadPki(const std::string& directory) {
    Pki pki{Load(directory, kFactoryRoot), Load(directory, kFactoryCa),
            Load(directory, kProductRoot), Load(directory, kProductCa)};
    CheckIssued(pki.factoryRoot, pki.factoryCa);
    CheckIssued(pki.productRoot, pki.productCa);
    return pki;
}

UnitIdentity IssueUnit(const Authority& factoryCa, const std::string& vin,
                       const std::string& suffix, TimePoint now) {
    const std::string commonName = vin + ":" + suffix;
    pki_support::ParseCommonName(commonName);
    const PkeyPtr key = GenerateKey();
    const X509Ptr certificate =
        factoryCa.Issue({commonName, key.get(), Years(now, kUnitYears), false});
    return {pki_support::ToPem(*key),
            pki_support::ToPem(*certificate) + pki_support::ToPem(factoryCa.Certificate())};
}

}  // namespace simulator::pki
