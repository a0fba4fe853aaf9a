#pragma once

#include <iosfwd>

namespace simulator::pki {

/// The program vintrel-pki: runs one command line and gives its exit status, 0 on success.
int RunPkiCommand(int argc, const char* const* argv, std::ostream& output, std::ostream& errors);

}  // namespace simulator::pki
