#include "simulator/vehicle/vehicle_command.h"

#include <optional>
#include <ostream>
#include <string>

#include <unistd.h>

#include <command_line/run_program.h>

#include "simulator/control/control_server.h"
#include "simulator/vehicle/command_interpreter.h"
#include "simulator/vehicle/main_loop.h"
#include "simulator/vehicle/options.h"
#include "simulator/vehicle/text_file.h"
#include "simulator/vehicle/vehicle.h"
#include "simulator/vehicle/vehicle_page.h"

namespace simulator::vehicle {

namespace {

void Serve(const Options& options, std::ostream& output) {
    MainLoop loop;
    Vehicle vehicle(options);
    CommandInterpreter interpreter(vehicle, [&loop] { loop.Quit(); });
    const auto execute = [&interpreter](const std::string& line) {
        return interpreter.Execute(line);
    };
    const ControlServer control(options.controlPath, execute);
    std::optional<VehiclePage> page;
    if (options.servesPage) {
        page.emplace(options, execute);
        output << "page " << page->Address() << std::endl;
    }
    if (options.readyFile.empty()) {
        output << "ready" << std::endl;
    } else {
        WriteFileAtomically(options.readyFile, "ready\n");
    }
    loop.Run(execute, options.endWithInput);
    if (!options.readyFile.empty()) {
        ::unlink(options.readyFile.c_str());
    }
}

}  // namespace

int RunVehicleCommand(int argc, const char* const* argv, std::ostream& output,
                      std::ostream& errors) {
    return command_line::RunProgram(
        {"vintrel-vehicle",
         "Plays the vehicle around the control unit: clamp control, immobilizer, diagnostic "
         "information, TLS alerts and the state of the data link. Takes commands, one per line, "
         "from standard input and from the control socket; the command \"help\" lists them.",
         argc, argv, output, errors},
        [&output](CLI::App& app) {
            return [&output, options = AddOptions(app)] {
                Serve(options(), output);
                return 0;
            };
        });
}

}  // namespace simulator::vehicle
