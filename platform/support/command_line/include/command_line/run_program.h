#pragma once

#include <functional>
#include <iosfwd>
#include <string>

namespace CLI {
class App;
}

namespace command_line {

/// A program, its standard streams, and what it was called with. The streams outlive the run.
struct Program {
    std::string name;
    std::string description;
    int argc{0};
    const char* const* argv{nullptr};
    std::ostream& output;
    std::ostream& errors;
};

/// What a program does once its command line is read; gives its exit status.
using Action = std::function<int()>;

/// Adds the program's options to the parser, and says what to do with what they have read.
using Definition = std::function<Action(CLI::App& app)>;

/// Runs a program on the calling thread and gives its exit status: that of its action; 0 after
/// --help; CLI11's status for the error, 100 to 127, after a command line that does not parse; 1
/// after an exception, whose text is reported on the error stream with the program's name before
/// it. Throws nothing.
int RunProgram(const Program& program, const Definition& define);

}  // namespace command_line
