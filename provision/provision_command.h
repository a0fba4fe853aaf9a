#pragma once

#include <iosfwd>

namespace provision {

/// The program vintrel-provision: runs one command line and gives its exit status, 0 on success and
/// 1 for input that was refused, with the reason on `errors`; the store then is as it was. `verify`
/// and `status` answer with a `Standing`, and may run once in a process. A command line that does
/// not parse has CLI11's exit status for that error, 100 to 127, and touches nothing.
int RunProvisionCommand(int argc, const char* const* argv, std::ostream& output,
                        std::ostream& errors);

}  // namespace provision
