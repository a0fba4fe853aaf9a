#include "simulator/page/page_command.h"

#include <cstdint>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include <command_line/run_program.h>

#include "simulator/page/page_server.h"

namespace simulator::page {

namespace {

namespace fs = std::filesystem;

struct Arguments {
    std::uint16_t port{0};
    std::string runner;
    bool starts{false};
    std::vector<std::string> directories;
};

/// Where tools/day and tools/open-page put what belongs to a unit.
UnitSettings SettingsOf(const fs::path& directory, const Arguments& arguments) {
    const fs::path programs = fs::canonical("/proc/self/exe").parent_path();
    const auto inUnit = [&](const char* program) {
        return std::vector<std::string>{fs::canonical(arguments.runner), directory / "unit",
                                        programs / program};
    };
    UnitSettings settings;
    settings.name = directory.filename();
    settings.vehicle = AskAt(directory / "unit/run/qel/simulator/vehicle-control.sock");
    settings.backend = AskAt(directory / "backend.sock");
    settings.logFile = directory / "logs/vintrel-client.log";
    settings.journalFile = directory / "logs/journal.jsonl";
    settings.service = inUnit("vintrel-client");
    settings.provision = inUnit("vintrel-provision");
    return settings;
}

void Serve(const Arguments& arguments, std::ostream& output) {
    std::vector<UnitSettings> units;
    for (const std::string& directory : arguments.directories) {
        units.push_back(SettingsOf(fs::canonical(directory), arguments));
    }
    PageServer server(arguments.port, std::move(units), arguments.starts);
    server.StopOnSignals();
    output << server.Address() << std::endl;
    server.Run();
}

void AddOptions(CLI::App& app, Arguments& arguments) {
    app.add_option("--port", arguments.port, "TCP port, 0 for any free one")->capture_default_str();
    app.add_option("--runner", arguments.runner, "the program tools/unit")
        ->required()
        ->check(CLI::ExistingFile);
    app.add_flag("--start", arguments.starts, "start the units' services at once");
    app.add_option("DIR", arguments.directories,
                   "directories of units, each with unit/, logs/ and backend.sock")
        ->required()
        ->check(CLI::ExistingDirectory);
}

}  // namespace

int RunPageCommand(int argc, const char* const* argv, std::ostream& output, std::ostream& errors) {
    Arguments arguments;
    return command_line::RunProgram(
        {"vintrel-page",
         "Serves a page on 127.0.0.1 that turns the ignition of units and shows what they do. "
         "Prints its address, which only its reader can know. Ends on SIGTERM or SIGINT, and with "
         "it the services that were started by the page.",
         argc, argv, output, errors},
        [&](CLI::App& app) {
            AddOptions(app, arguments);
            return [&] {
                Serve(arguments, output);
                return 0;
            };
        });
}

}  // namespace simulator::page
