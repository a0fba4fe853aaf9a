#include <exception>
#include <iostream>
#include <optional>

#include <unistd.h>

#include "simulator/control/control_server.h"
#include "simulator/vehicle/command_interpreter.h"
#include "simulator/vehicle/main_loop.h"
#include "simulator/vehicle/options.h"
#include "simulator/vehicle/text_file.h"
#include "simulator/vehicle/vehicle.h"
#include "simulator/vehicle/vehicle_page.h"

namespace {

using namespace simulator::vehicle;

void Serve(const Options& options) {
    MainLoop loop;
    Vehicle vehicle(options);
    CommandInterpreter interpreter(vehicle, [&loop] { loop.Quit(); });
    const auto execute = [&interpreter](const std::string& line) {
        return interpreter.Execute(line);
    };
    const simulator::ControlServer control(options.controlPath, execute);
    std::optional<VehiclePage> page;
    if (options.servesPage) {
        page.emplace(options, execute);
        std::cout << "page " << page->Address() << std::endl;
    }
    if (options.readyFile.empty()) {
        std::cout << "ready" << std::endl;
    } else {
        WriteFileAtomically(options.readyFile, "ready\n");
    }
    loop.Run(execute, options.endWithInput);
    if (!options.readyFile.empty()) {
        ::unlink(options.readyFile.c_str());
    }
}

}  // namespace

int main(int argc, char** argv) {
    try {
        int exitStatus = 0;
        const auto options = ParseCommandLine(argc, argv, exitStatus);
        if (!options) {
            return exitStatus;
        }
        Serve(*options);
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "vintrel-vehicle: " << error.what() << std::endl;
        return 1;
    }
}
