#pragma once

#include <cstdint>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "timeline/log_interpreter.h"

namespace timeline {

/// Prints a log as text: each pass in a line, between them the starts and ends of the service and
/// the jumps of its clock, and how much of what there was.
class ExplainPrinter {
public:
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

/// 0: the last pass did not fail. 1: it failed or was cut off. 3: the log does not tell.
int ExitStatus(const LogInterpreter& interpreter);

/// What the reader of the result must know about the log, a sentence each.
std::vector<std::string> Notes(const LogInterpreter& interpreter);

/// "3.012 s", "15 min 4 s", "2 d 3 h".
std::string DurationText(std::int64_t milliseconds);

}  // namespace timeline
