#pragma once

#include <functional>
#include <iosfwd>
#include <string>

namespace CLI {
class App;
}

namespace command_line {

/// A program, its arguments and its standard streams, which must outlive the run.
struct Program {
    std::string name;
    std::string description;
    int argc{0};
    const char* const* argv{nullptr};
    std::ostream& output;
    std::ostream& errors;
};

/// Runs a program after its command line was parsed; returns the exit status.
using Action = std::function<int()>;

/// Adds the program's options to the parser and returns the action to run.
using Definition = std::function<Action(CLI::App& app)>;

/// Runs a program on the calling thread and returns its exit status: that of its action; 0 for
/// --help; CLI11's status, 100 to 127, if the command line does not parse; 1 after an exception,
/// which is reported on the error stream, preceded by the program's name.
int RunProgram(const Program& program, const Definition& define);

}  // namespace command_line
