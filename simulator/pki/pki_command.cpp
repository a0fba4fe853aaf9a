#include "simulator/pki/pki_command.h"

#include <chrono>
#include <ostream>
#include <string>

#include <CLI/CLI.hpp>
#include <openssl/crypto.h>

#include <command_line/run_program.h>
#include <pki_support/file_access.h>
#include <pki_support/vehicle_identity.h>

#include "simulator/pki/pki_directory.h"

namespace simulator::pki {

namespace {

struct Arguments {
    std::string directory;
    std::string vin;
    std::string suffix = "C003";
    std::string output;
};

void WriteUnit(const Arguments& arguments) {
    const Pki pki = LoadPki(arguments.directory);
    UnitIdentity unit =
        IssueUnit(pki.factoryCa, arguments.vin, arguments.suffix, std::chrono::system_clock::now());
    const pki_support::SecretText text(unit.keyPem + unit.chainPem);
    OPENSSL_cleanse(unit.keyPem.data(), unit.keyPem.size());
    pki_support::WriteFile(arguments.output, text.text, pki_support::kSecretMode);
}

command_line::Action AddCommands(CLI::App& app, Arguments& arguments) {
    app.require_subcommand(1);
    CLI::App* create = app.add_subcommand(
        "create",
        "Make both PKIs in DIR, which must not exist or be empty: factory-root, factory-ca, "
        "product-root, product-ca, each as NAME.pem (certificate) and NAME.key (private key)");
    create->add_option("DIR", arguments.directory)->required();
    CLI::App* unit = app.add_subcommand("unit", "Issue a unit's base certificate (CN=VIN:SUFFIX)");
    unit->add_option("DIR", arguments.directory, "directory made by \"create\"")->required();
    unit->add_option("--vin", arguments.vin, "VIN, 17 characters (ISO 3779)")->required();
    unit->add_option("--suffix", arguments.suffix, "what follows the VIN")->capture_default_str();
    unit->add_option("--out", arguments.output,
                     "file for the private key and the certificate chain, in PEM (mode 0600)")
        ->required();
    return [create, &arguments] {
        if (create->parsed()) {
            CreatePki(arguments.directory, std::chrono::system_clock::now());
        } else {
            WriteUnit(arguments);
        }
        return 0;
    };
}

}  // namespace

int RunPkiCommand(int argc, const char* const* argv, std::ostream& output, std::ostream& errors) {
    Arguments arguments;
    return command_line::RunProgram(
        {"vintrel-pki",
         "Makes the certificates around a unit: those of its factory, which prove to the backend "
         "what unit a request comes from, and those of the product PKI, which issues client "
         "certificates.",
         argc, argv, output, errors},
        [&](CLI::App& app) { return AddCommands(app, arguments); });
}

}  // namespace simulator::pki
