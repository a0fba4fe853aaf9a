#pragma once

#include <cstdint>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "timeline/log_interpreter.h"

namespace timeline {

/// Prints a log as text: each pass in a line, between them the starts and ends of the service and
/// the jumps of its clock, at the end the sums. A failed write shows in the stream's state. Belongs
/// to one thread.
class ExplainPrinter {
public:
    /// The stream must outlive it.
    explicit ExplainPrinter(std::ostream& output) : mOutput(output) {}

    void Print(const Event& event);
    /// The sums, once everything was read.
    void PrintEnd(const LogInterpreter& interpreter);

private:
    void PrintPass(const Pass& pass);

    std::ostream& mOutput;
    std::uint64_t mPasses{0};
    /// Passes by how they ended.
    std::map<PassOutcome, std::uint64_t> mOutcomes;
};

/// The exit status of `vintrel-timeline --explain`: 0 if the last pass did not fail, 1 if it failed
/// or was cut off, 3 if its outcome is not in the log.
int ExitStatus(const LogInterpreter& interpreter);

/// Limits of the log that a reader of the result has to know, a sentence each; none if it has none.
std::vector<std::string> Notes(const LogInterpreter& interpreter);

/// "3.012 s", "15 min 4 s", "2 d 3 h"; for no negative length.
std::string DurationText(std::int64_t milliseconds);

}  // namespace timeline
