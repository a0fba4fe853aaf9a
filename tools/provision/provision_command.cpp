#include "tools/provision/provision_command.h"

#include <exception>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "orv_sec_crypto/store_administration.h"
#include "simulator/pki/certificates.h"
#include "simulator/pki/file_access.h"
#include "simulator/pki/pki_error.h"
#include "simulator/pki/vehicle_identity.h"
#include "tools/provision/store_report.h"

namespace provision {

namespace {

using namespace simulator::pki;
using orv::sec::crypto::host::AdministrationResult;
using orv::sec::crypto::host::StoreAdministration;
using orv::sec::crypto::host::StoreEntry;

constexpr const char* kBaseId = "ECU_BASE_CERT";
constexpr const char* kRootId = "PRODUCT_PKI_ROOT_CERT";

constexpr const char* kShowFormat =
    "Each line describes one certificate, or a key pair without one, in nine fields separated by "
    "tabs: store, kind (\"key\" or \"certificate\"), id, position in the chain (from 1; 0 without "
    "a certificate), subject, issuer, first and last moment of validity (UTC), SHA-256 "
    "fingerprint. Fields without a value are \"-\".";

struct Arguments {
    std::string store = StoreAdministration::DefaultDirectory();
    std::string keyFile;
    std::string chainFile;
    std::string rootFile;
    bool wantsPem = false;
    EntrySelector selector;
};

void Require(const AdministrationResult& result) {
    if (!result) {
        throw PkiError(result.message);
    }
}

void RequireNoFault(const std::string& fault) {
    if (!fault.empty()) {
        throw PkiError(fault);
    }
}

std::unique_ptr<StoreAdministration> Open(const Arguments& arguments) {
    std::unique_ptr<StoreAdministration> administration;
    Require(StoreAdministration::Open(arguments.store, administration));
    return administration;
}

std::vector<StoreEntry> List(const StoreAdministration& administration) {
    std::vector<StoreEntry> entries;
    Require(administration.List(entries));
    return entries;
}

// Any file may hold a private key: a factory may keep key and chain together.
template <typename Parse>
auto ParseFile(const std::string& path, Parse parse) {
    const SecretText pem(ReadFile(path));
    try {
        return parse(pem.text);
    } catch (const PkiError& error) {
        throw PkiError(path + ": " + error.what());
    }
}

void Initialize(const Arguments& arguments) {
    std::unique_ptr<StoreAdministration> administration;
    Require(StoreAdministration::CreateOrOpen(arguments.store, administration));
}

void LoadBase(const Arguments& arguments) {
    const auto administration = Open(arguments);
    const PkeyPtr key = ParseFile(arguments.keyFile, ReadPrivateKey);
    const auto chain = ParseFile(arguments.chainFile, ReadCertificates);
    X509& base = *chain.front();
    if (IsCa(base)) {
        throw PkiError("the first certificate of the chain is a CA's, not a unit's");
    }
    ParseCommonName(CommonName(*X509_get_subject_name(&base)));
    RequireNoFault(FindChainFault(chain));

    const std::string chainPem = ToPem(chain);
    const SecretText keyPem(ToPem(*key));
    Require(administration->ImportKeyPair(kBaseId, keyPem.text, chainPem));
}

void LoadRoot(const Arguments& arguments) {
    const auto administration = Open(arguments);
    const auto roots = ParseFile(arguments.rootFile, ReadCertificates);
    for (const X509Ptr& root : roots) {
        const std::string name = "'" + ToText(*X509_get_subject_name(root.get())) + "' ";
        if (!IsCa(*root)) {
            throw PkiError(name + "is no CA");
        }
        if (X509_self_signed(root.get(), 1) != 1) {
            throw PkiError(name + "is not signed by itself, so it is no root");
        }
    }
    Require(administration->StoreCertificate(kRootId, ToPem(roots)));
}

std::string Show(const Arguments& arguments) {
    const auto entries = List(*Open(arguments));
    if (arguments.selector.id.empty() && !arguments.wantsPem) {
        return Describe(Filter(entries, arguments.selector));
    }
    const StoreEntry entry = Select(entries, arguments.selector);
    if (!arguments.wantsPem) {
        return Describe({entry});
    }
    if (entry.certificateChain.empty()) {
        throw PkiError("the key pair '" + entry.id + "' has no certificate");
    }
    return entry.certificateChain;
}

void Remove(const Arguments& arguments) {
    const auto administration = Open(arguments);
    const StoreEntry entry = Select(List(*administration), arguments.selector);
    Require(administration->Remove(entry.store, entry.id, entry.kind));
}

void AddSelector(CLI::App& command, EntrySelector& selector) {
    command.add_option("--of", selector.store, "name of the store that holds it, e.g. KORU or TIV");
    command.add_option("--kind", selector.kind, "key or certificate")
        ->check(CLI::IsMember({"key", "certificate"}));
}

}  // namespace

int RunProvisionCommand(int argc, const char* const* argv, std::ostream& output,
                        std::ostream& errors) {
    Arguments arguments;
    CLI::App app(
        "Does the factory's work on a unit's secure store. Input that does not fit is refused with "
        "exit status 1 and leaves the store as it was. No command ever prints a private key.",
        "vintrel-provision");
    app.require_subcommand(1);
    app.add_option("--store", arguments.store,
                   "directory of the secure store (environment: ORV_CRYPTO_DIR)")
        ->capture_default_str();

    CLI::App* init = app.add_subcommand("init", "Make the store, or what it lacks");
    CLI::App* base = app.add_subcommand(
        "base", std::string("Load the unit's base key and certificate chain as ") + kBaseId +
                    "; the common name must be VIN:SUFFIX");
    base->add_option("--key", arguments.keyFile, "PEM file with the private key (P-256)")
        ->required();
    base->add_option("--chain", arguments.chainFile,
                     "PEM file with the certificates, the unit's first, then each one's issuer")
        ->required();
    CLI::App* root = app.add_subcommand(
        "root", std::string("Load the root certificates of the product PKI as ") + kRootId);
    root->add_option("FILE", arguments.rootFile, "PEM file")->required();
    CLI::App* show = app.add_subcommand("show", "List the store, a part of it, or one entry");
    show->footer(kShowFormat);
    CLI::Option* shownId = show->add_option("ID", arguments.selector.id, "entry to show");
    show->add_flag("--pem", arguments.wantsPem, "print the entry's certificates in PEM")
        ->needs(shownId);
    AddSelector(*show, arguments.selector);
    CLI::App* remove = app.add_subcommand("remove", "Remove a key pair or certificate");
    remove->add_option("ID", arguments.selector.id, "entry to remove")->required();
    AddSelector(*remove, arguments.selector);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error, output, errors);
    }
    try {
        if (init->parsed()) {
            Initialize(arguments);
        } else if (base->parsed()) {
            LoadBase(arguments);
        } else if (root->parsed()) {
            LoadRoot(arguments);
        } else if (show->parsed()) {
            output << Show(arguments) << std::flush;
        } else {
            Remove(arguments);
        }
        return 0;
    } catch (const std::exception& error) {
        errors << "vintrel-provision: " << error.what() << std::endl;
        return 1;
    }
}

}  // namespace provision
