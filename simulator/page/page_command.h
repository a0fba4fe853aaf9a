#pragma once

#include <iosfwd>

namespace simulator::page {

/// The program vintrel-page: serves until SIGTERM or SIGINT. Returns the exit status: 0, 1
/// for a failure, or that of a wrong command line; texts for the user are on `errors`.
int RunPageCommand(int argc, const char* const* argv, std::ostream& output, std::ostream& errors);

}  // namespace simulator::page
