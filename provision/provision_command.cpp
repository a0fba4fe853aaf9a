#include "provision/provision_command.h"

#include <algorithm>
#include <ctime>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include <command_line/run_program.h>
#include <pki_support/certificates.h>
#include <pki_support/file_access.h>
#include <pki_support/pki_error.h>
#include <pki_support/vehicle_identity.h>

#include "logging/qel_logging.h"
#include "orv_sec_crypto/store_administration.h"
#include "provision/judgement_report.h"
#include "provision/store_export.h"
#include "provision/store_judge.h"
#include "provision/store_report.h"

namespace provision {

namespace {

using namespace pki_support;
using orv::sec::crypto::host::AdministrationResult;
using orv::sec::crypto::host::StoreAdministration;
using orv::sec::crypto::host::StoreEntry;
using orv::sec::crypto::host::TokenKeyStorage;
using orv::sec::crypto::host::TpmKeyStorage;

constexpr const char* kBaseId = "ECU_BASE_CERT";
constexpr const char* kRootId = "PRODUCT_PKI_ROOT_CERT";
constexpr int kDone = 0;
constexpr const char* kTpmOption = "--tpm";
constexpr const char* kTokenOption = "--pkcs11";

constexpr const char* kShowFormat =
    "Each line describes one certificate, or a key pair without one, in nine fields separated by "
    "tabs: store, kind (\"key\" or \"certificate\"), id, position in the chain (from 1; 0 without "
    "a certificate), subject, issuer, first and last moment of validity (UTC), SHA-256 "
    "fingerprint. Fields without a value are \"-\". An entry that does not parse has one line, "
    "with "
    "\"broken: \" and the reason as its subject.";

constexpr const char* kExitStatuses =
    "Exit status: 0 in order; 3 due (valid, but ends within 365 days); 4 missing (something that "
    "the service needs is not in the store, or no client certificate is); 5 wrong (something does "
    "not parse, open, fit or verify, or a client certificate is not valid at the moment). The "
    "greatest counts. 1 if the store can't be read, its TPM or token not be reached, or the answer "
    "not be written. The service may be running; the store is read at one moment and stays as it "
    "is. ARA_LOG_LEVEL=info in the environment shows what the service's own classes say.";

struct Arguments {
    std::string store = StoreAdministration::DefaultDirectory();
    std::string tcti;
    TokenKeyStorage token;
    std::string keyFile;
    std::string chainFile;
    std::string rootFile;
    bool wantsPem = false;
    bool wantsJson = false;
    bool wantsPublicKey = false;
    bool mayReplace = false;
    std::string outputFile;
    std::string outputDirectory;
    std::string moment;
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

void WriteAnswer(const std::string& text, std::ostream& output) {
    output << text << std::flush;
    if (!output) {
        throw PkiError("the output cannot be written");
    }
}

std::unique_ptr<StoreAdministration> Open(const Arguments& arguments) {
    std::unique_ptr<StoreAdministration> administration;
    Require(StoreAdministration::Open(arguments.store, administration));
    return administration;
}

std::unique_ptr<StoreAdministration> OpenForReading(const Arguments& arguments) {
    std::unique_ptr<StoreAdministration> administration;
    Require(StoreAdministration::OpenForReading(arguments.store, administration));
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

// An option that is there counts, also with an empty text, which is refused where it is checked.
void Initialize(const Arguments& arguments, const CLI::App& init) {
    std::unique_ptr<StoreAdministration> administration;
    if (init.count(kTpmOption) > 0) {
        Require(StoreAdministration::CreateOrOpen(arguments.store, TpmKeyStorage{arguments.tcti},
                                                  administration));
    } else if (init.count(kTokenOption) > 0) {
        Require(
            StoreAdministration::CreateOrOpen(arguments.store, arguments.token, administration));
    } else {
        Require(StoreAdministration::CreateOrOpen(arguments.store, administration));
    }
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

std::vector<StoreEntry> ListSelected(const Arguments& arguments) {
    const auto entries = List(*OpenForReading(arguments));
    if (arguments.selector.id.empty()) {
        return Filter(entries, arguments.selector);
    }
    return {Select(entries, arguments.selector)};
}

std::string Show(const Arguments& arguments) {
    const auto entries = ListSelected(arguments);
    if (arguments.wantsPem) {
        return RequirePart(entries.front(), PartKind::kCertificates).pem;
    }
    return arguments.wantsJson ? ToJson(entries) : Describe(entries);
}

void RequireNoneBroken(const std::vector<StoreEntry>& entries) {
    for (const StoreEntry& entry : entries) {
        if (!entry.fault.empty()) {
            throw PkiError("exported without what does not parse, such as '" + entry.id +
                           "': " + entry.fault);
        }
    }
}

void Export(const Arguments& arguments, std::ostream& output) {
    const auto entries = ListSelected(arguments);
    const auto kind = arguments.wantsPublicKey ? PartKind::kPublicKey : PartKind::kCertificates;
    const auto parts = arguments.selector.id.empty()
                           ? PublicParts(entries, kind)
                           : std::vector<PublicPart>{RequirePart(entries.front(), kind)};
    if (!arguments.outputDirectory.empty()) {
        WriteParts(arguments.outputDirectory, parts, arguments.mayReplace);
        RequireNoneBroken(entries);
        return;
    }
    std::string pem;
    for (const PublicPart& part : parts) {
        pem += part.pem;
    }
    if (arguments.outputFile.empty()) {
        WriteAnswer(pem, output);
    } else {
        WritePart(arguments.outputFile, pem, arguments.mayReplace);
    }
    RequireNoneBroken(entries);
}

/// A moment as `pki_support::ToText` writes it, within what the clock counts.
std::optional<TimePoint> ParseMoment(const std::string& text) {
    constexpr auto kLast =
        std::chrono::floor<std::chrono::seconds>(TimePoint::max().time_since_epoch());
    std::tm utc{};
    const char* end = ::strptime(text.c_str(), "%Y-%m-%dT%H:%M:%SZ", &utc);
    if (end == nullptr || *end != '\0') {
        return std::nullopt;
    }
    const std::chrono::seconds sinceEpoch(::timegm(&utc));
    if (sinceEpoch.count() < 0 || sinceEpoch > kLast) {
        return std::nullopt;
    }
    const TimePoint moment(sinceEpoch);
    return ToText(moment) == text ? std::make_optional(moment) : std::nullopt;
}

/// What a judgement needs: the moment, and a store that stays as it is.
struct Judgement {
    explicit Judgement(const Arguments& arguments)
        : at(ParseMoment(arguments.moment).value_or(std::chrono::system_clock::now())),
          administration(OpenForReading(arguments)),
          judge(*administration, at) {}

    TimePoint at;
    std::unique_ptr<StoreAdministration> administration;
    StoreJudge judge;
};

int Verify(const Arguments& arguments, std::ostream& output) {
    const Judgement judgement(arguments);
    const auto entries = judgement.judge.JudgeEntries();
    WriteAnswer(arguments.wantsJson ? ToJson(entries, judgement.at) : Describe(entries), output);
    return static_cast<int>(StandingOf(entries));
}

int Status(const Arguments& arguments, std::ostream& output) {
    const Judgement judgement(arguments);
    const UnitStatus status = judgement.judge.JudgeUnit();
    WriteAnswer(arguments.wantsJson ? ToJson(status, judgement.at) : Describe(status), output);
    return static_cast<int>(status.standing);
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

/// A command of the program, which reads its arguments from where its options put them.
struct Command {
    CLI::App* app;
    /// Writes its answer and gives the exit status; throws where it fails.
    std::function<int(std::ostream& output)> run;
    qel_logging::EQELLogLevel logLevel = qel_logging::EQELLogLevel::kWarning;
};

Command AddInit(CLI::App& app, Arguments& arguments) {
    CLI::App& init = *app.add_subcommand("init", "Make the store, or what it lacks");
    CLI::Option* tpm = init.add_option(
        kTpmOption, arguments.tcti,
        "have this TPM 2.0 seal the wrapping key; a TCTI configuration, e.g. device:/dev/tpmrm0");
    CLI::Option* module = init.add_option(kTokenOption, arguments.token.module,
                                          "keep the keys in a token behind this PKCS #11 module");
    CLI::Option* label =
        init.add_option("--token", arguments.token.token, "label of the token")->needs(module);
    init.add_option("--slot", arguments.token.slot, "number of its slot, in place of the label")
        ->needs(module)
        ->excludes(label);
    module->excludes(tpm)->needs(init.add_option("--pin-file", arguments.token.pinFile,
                                                 "file with the token's user PIN, mode 0400; "
                                                 "relative to the store's directory")
                                     ->needs(module));
    return {&init, [&](std::ostream&) {
                Initialize(arguments, init);
                return kDone;
            }};
}

Command AddBase(CLI::App& app, Arguments& arguments) {
    CLI::App* base = app.add_subcommand(
        "base", std::string("Load the unit's base key and certificate chain as ") + kBaseId +
                    "; the common name must be VIN:SUFFIX");
    base->add_option("--key", arguments.keyFile, "PEM file with the private key (P-256)")
        ->required();
    base->add_option("--chain", arguments.chainFile,
                     "PEM file with the certificates, the unit's first, then each one's issuer")
        ->required();
    return {base, [&](std::ostream&) {
                LoadBase(arguments);
                return kDone;
            }};
}

Command AddRoot(CLI::App& app, Arguments& arguments) {
    CLI::App* root = app.add_subcommand(
        "root", std::string("Load the root certificates of the product PKI as ") + kRootId);
    root->add_option("FILE", arguments.rootFile, "PEM file")->required();
    return {root, [&](std::ostream&) {
                LoadRoot(arguments);
                return kDone;
            }};
}

Command AddShow(CLI::App& app, Arguments& arguments) {
    CLI::App* show = app.add_subcommand("show", "List the store, a part of it, or one entry");
    show->footer(kShowFormat);
    CLI::Option* id = show->add_option("ID", arguments.selector.id, "entry to show");
    CLI::Option* pem =
        show->add_flag("--pem", arguments.wantsPem, "print the entry's certificates in PEM")
            ->needs(id);
    show->add_flag("--json", arguments.wantsJson, "answer in JSON")->excludes(pem);
    AddSelector(*show, arguments.selector);
    return {show, [&](std::ostream& output) {
                WriteAnswer(Show(arguments), output);
                return kDone;
            }};
}

Command AddExport(CLI::App& app, Arguments& arguments) {
    CLI::App& command = *app.add_subcommand(
        "export", "Write certificates or public keys in PEM; a private key never leaves the store");
    command.footer(
        "Without ID everything is exported that there is. In a directory each entry has a file of "
        "its own, named STORE.KIND.ID.pem, or STORE.key.ID.public.pem for a public key.");
    command.add_option("ID", arguments.selector.id, "entry to export");
    AddSelector(command, arguments.selector);
    command.add_flag("--public-key", arguments.wantsPublicKey,
                     "public keys of key pairs instead of certificates");
    CLI::Option* file = command.add_option("--out", arguments.outputFile,
                                           "file to write, instead of the standard output");
    command.add_option("--directory", arguments.outputDirectory, "directory to write files to")
        ->check(CLI::ExistingDirectory)
        ->excludes(file);
    command.add_flag("--force", arguments.mayReplace, "replace files that are there already");
    return {&command, [&](std::ostream& output) {
                Export(arguments, output);
                return kDone;
            }};
}

// The answer has all that matters; ARA_LOG_LEVEL shows more.
Command AddJudgement(CLI::App& app, const char* name, const char* description, Arguments& arguments,
                     int (*judge)(const Arguments&, std::ostream&)) {
    CLI::App* command = app.add_subcommand(name, description);
    command->footer(kExitStatuses);
    command->add_flag("--json", arguments.wantsJson, "answer in JSON");
    command
        ->add_option("--at", arguments.moment,
                     "judge as of this moment, e.g. 2026-11-21T08:00:00Z, instead of now")
        ->check([](const std::string& text) {
            return ParseMoment(text).has_value()
                       ? std::string()
                       : "not a moment like 2026-11-21T08:00:00Z: " + text;
        });
    return {command, [&arguments, judge](std::ostream& output) { return judge(arguments, output); },
            qel_logging::EQELLogLevel::kFatal};
}

Command AddVerify(CLI::App& app, Arguments& arguments) {
    return AddJudgement(
        app, "verify",
        "Check each entry: private key, certificate, path and validity, one line each", arguments,
        Verify);
}

Command AddStatus(CLI::App& app, Arguments& arguments) {
    return AddJudgement(app, "status",
                        "Tell in one line how the client certificate stands, and what the service "
                        "will do about it",
                        arguments, Status);
}

Command AddRemove(CLI::App& app, Arguments& arguments) {
    CLI::App* remove = app.add_subcommand("remove", "Remove a key pair or certificate");
    remove->add_option("ID", arguments.selector.id, "entry to remove")->required();
    AddSelector(*remove, arguments.selector);
    return {remove, [&](std::ostream&) {
                Remove(arguments);
                return kDone;
            }};
}

command_line::Action AddCommands(CLI::App& app, Arguments& arguments, std::ostream& output) {
    app.require_subcommand(1);
    app.add_option("--store", arguments.store,
                   "directory of the secure store (environment: ORV_CRYPTO_DIR)")
        ->capture_default_str();
    // In the order of the help text.
    const std::vector<Command> commands{
        AddInit(app, arguments),   AddBase(app, arguments),   AddRoot(app, arguments),
        AddShow(app, arguments),   AddExport(app, arguments), AddVerify(app, arguments),
        AddStatus(app, arguments), AddRemove(app, arguments),
    };
    return [commands, &output] {
        const auto& command =
            *std::find_if(commands.begin(), commands.end(),
                          [](const Command& candidate) { return candidate.app->parsed(); });
        qel_logging::QELLogging::InitLogging("PROV", command.logLevel);
        return command.run(output);
    };
}

}  // namespace

int RunProvisionCommand(int argc, const char* const* argv, std::ostream& output,
                        std::ostream& errors) {
    Arguments arguments;
    return command_line::RunProgram(
        {"vintrel-provision",
         "Does the factory's work on a unit's secure store. Input that does not fit is refused "
         "with exit status 1 and leaves the store as it was. No command ever prints a private key. "
         "show, export, verify and status work beside the running service.",
         argc, argv, output, errors},
        [&](CLI::App& app) { return AddCommands(app, arguments, output); });
}

}  // namespace provision
