#pragma once

#include <iosfwd>

namespace simulator::pki {

/// The program vintrel-pki: executes one command line and returns its exit status, 0 on success.
int RunPkiCommand(int argc, const char* const* argv, std::ostream& output, std::ostream& errors);

}  // namespace simulator::pki
