#pragma once

#include <iosfwd>

namespace simulator::vehicle {

/// The program vintrel-vehicle: serves until SIGTERM, SIGINT or the command "quit" and gives its
/// exit status. `output` tells when all is served; what commands answer goes to standard output.
int RunVehicleCommand(int argc, const char* const* argv, std::ostream& output,
                      std::ostream& errors);

}  // namespace simulator::vehicle
