#include "simulator/backend/backend_command.h"

#include <csignal>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <unistd.h>

#include <command_line/run_program.h>
#include <pki_support/file_access.h>

#include "simulator/backend/command_interpreter.h"
#include "simulator/backend/enrolment_service.h"
#include "simulator/backend/journal.h"
#include "simulator/backend/scenario.h"
#include "simulator/backend/server.h"
#include "simulator/control/control_server.h"
#include "simulator/pki/pki_directory.h"

namespace simulator::backend {

namespace {

constexpr int kMaxValidityDays = 9000;

struct Arguments {
    std::string pkiDirectory;
    ServerSettings server;
    int timeLimitSeconds = 30;
    std::string portFile;
    std::string journal;
    std::string scenarios;
    std::string control;
    int validityDays = 730;
};

void AddOptions(CLI::App& app, Arguments& arguments) {
    app.add_option("--pki", arguments.pkiDirectory, "directory made by \"vintrel-pki create\"")
        ->required();
    app.add_option("--port", arguments.server.port, "TCP port on 127.0.0.1, 0 for any free one")
        ->capture_default_str();
    app.add_option("--port-file", arguments.portFile,
                   "file that holds the port while the backend listens");
    app.add_option("--journal", arguments.journal,
                   "file to which each request is appended as one line of JSON");
    app.add_option("--scenario", arguments.scenarios,
                   "what to do with the requests, one after the other, separated by commas; the "
                   "last one repeats: " +
                       ScenarioHelp());
    app.add_option("--control", arguments.control,
                   "socket for commands, one per line; the command \"help\" lists them");
    app.add_option("--validity-days", arguments.validityDays, "validity of issued certificates")
        ->check(CLI::Range(1, kMaxValidityDays))
        ->capture_default_str();
    app.add_option("--time-limit", arguments.timeLimitSeconds, "seconds for one exchange")
        ->check(CLI::Range(1, 3600))
        ->capture_default_str();
}

void Serve(const Arguments& arguments, std::ostream& output) {
    // A closed reader of the output must not terminate the backend.
    std::signal(SIGPIPE, SIG_IGN);
    const EnrolmentService service(pki::LoadPki(arguments.pkiDirectory),
                                   std::chrono::hours(24) * arguments.validityDays,
                                   std::chrono::system_clock::now);
    Journal journal(arguments.journal);
    ServerSettings settings = arguments.server;
    settings.timeLimit = std::chrono::seconds(arguments.timeLimitSeconds);
    Server server(settings, service, journal,
                  ScenarioSequence(ParseScenarios(arguments.scenarios)));
    server.StopOnSignals();
    CommandInterpreter interpreter(server, arguments.scenarios);
    std::optional<ControlServer> control;
    if (!arguments.control.empty()) {
        control.emplace(arguments.control, [&interpreter](const std::string& line) {
            return interpreter.Execute(line);
        });
    }
    const std::string port = std::to_string(server.Port());
    if (!arguments.portFile.empty()) {
        pki_support::WriteFile(arguments.portFile, port + "\n", pki_support::kPublicMode);
    }
    output << "listening on 127.0.0.1:" << port << std::endl;
    server.Run();
    if (!arguments.portFile.empty()) {
        ::unlink(arguments.portFile.c_str());
    }
}

}  // namespace

int RunBackendCommand(int argc, const char* const* argv, std::ostream& output,
                      std::ostream& errors) {
    Arguments arguments;
    return command_line::RunProgram(
        {"vintrel-backend",
         "Plays the key-management service: takes certificate requests over HTTP/1.1 on 127.0.0.1, "
         "checks them and issues client certificates. Ends on SIGTERM or SIGINT.",
         argc, argv, output, errors},
        [&](CLI::App& app) {
            AddOptions(app, arguments);
            return [&] {
                Serve(arguments, output);
                return 0;
            };
        });
}

}  // namespace simulator::backend
