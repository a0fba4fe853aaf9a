#pragma once

#include <iosfwd>

namespace simulator::backend {

/// The program vintrel-backend: serves until SIGTERM or SIGINT and returns its exit status.
int RunBackendCommand(int argc, const char* const* argv, std::ostream& output,
                      std::ostream& errors);

}  // namespace simulator::backend
