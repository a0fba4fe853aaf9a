#pragma once

#include <iosfwd>

namespace simulator::page {

/// The program vintrel-page: serves until SIGTERM or SIGINT and gives its exit status.
int RunPageCommand(int argc, const char* const* argv, std::ostream& output, std::ostream& errors);

}  // namespace simulator::page
