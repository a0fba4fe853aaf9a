#pragma once

#include <iosfwd>

namespace simulator::vehicle {

/// The program vintrel-vehicle: serves until SIGTERM, SIGINT or the command "quit" and returns
/// its exit status. Readiness is reported on `output`; answers to commands go to standard output.
int RunVehicleCommand(int argc, const char* const* argv, std::ostream& output,
                      std::ostream& errors);

}  // namespace simulator::vehicle
