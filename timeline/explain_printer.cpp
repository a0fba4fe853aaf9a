#include "timeline/explain_printer.h"

#include <array>
#include <cstdio>
#include <utility>
#include <vector>

namespace timeline {

namespace {

constexpr int kFailedStatus = 1;
constexpr int kUnknownStatus = 3;

std::string CountText(const std::vector<std::pair<std::string, std::uint32_t>>& kinds) {
    std::string text;
    for (const auto& [kind, count] : kinds) {
        text += text.empty() ? "" : ", ";
        text += count == 1 ? kind : std::to_string(count) + " x " + kind;
    }
    return text;
}

std::string Plural(std::uint64_t count, const char* what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

}  // namespace

std::string DurationText(std::int64_t milliseconds) {
    constexpr std::int64_t kMinute = 60;
    constexpr std::int64_t kHour = 60 * kMinute;
    constexpr std::int64_t kDay = 24 * kHour;
    const std::int64_t seconds = milliseconds / 1000;
    if (seconds < kMinute) {
        std::array<char, 32> text{};
        std::snprintf(text.data(), text.size(), "%lld.%03lld s", static_cast<long long>(seconds),
                      static_cast<long long>(milliseconds % 1000));
        return text.data();
    }
    const auto pair = [](std::int64_t high, const char* unit, std::int64_t low, const char* part) {
        return std::to_string(high) + " " + unit + " " + std::to_string(low) + " " + part;
    };
    if (seconds < kHour) {
        return pair(seconds / kMinute, "min", seconds % kMinute, "s");
    }
    if (seconds < kDay) {
        return pair(seconds / kHour, "h", seconds % kHour / kMinute, "min");
    }
    return pair(seconds / kDay, "d", seconds % kDay / kHour, "h");
}

void ExplainPrinter::Print(const Event& event) {
    switch (event.kind) {
        case EventKind::kPassEnd:
            PrintPass(*event.pass);
            break;
        case EventKind::kProcess:
            mOutput << ToText(event.moment) << " -- " << event.text << '\n';
            break;
        case EventKind::kJump:
            mOutput << ToText(event.moment) << " -- " << event.text;
            if (event.length != 0) {
                mOutput << " by " << DurationText(event.length < 0 ? -event.length : event.length);
            }
            mOutput << '\n';
            break;
        case EventKind::kState:
        case EventKind::kMark:
        case EventKind::kWait:
        case EventKind::kPassBegin:
            break;
    }
}

void ExplainPrinter::PrintPass(const Pass& pass) {
    ++mPasses;
    ++mOutcomes[pass.outcome];
    mOutput << ToText(pass.begin) << " pass " << pass.number << ": " << pass.trigger << "; "
            << (pass.decision.empty() ? "no decision" : pass.decision) << "; "
            << (pass.beginSeen ? "" : "at least ") << Plural(pass.attempts, "attempt") << "; "
            << OutcomeText(pass) << "; " << (pass.beginSeen ? "" : "at least ")
            << (pass.begin.base == TimeBase::kNone ? "no times"
                                                   : DurationText(pass.end.axis - pass.begin.axis));
    if (pass.clockJumped) {
        mOutput << " without the clock's jump";
    }
    if (!pass.causes.empty() && (pass.attempts > 1 || pass.outcome != PassOutcome::kFailed)) {
        mOutput << "; attempts failed by: " << CountText(pass.causes);
    }
    if (!pass.waits.empty()) {
        mOutput << "; waited for: " << CountText(pass.waits);
    }
    mOutput << '\n';
}

void ExplainPrinter::PrintEnd(const LogInterpreter& interpreter) {
    mOutput << "passes: " << mPasses;
    const char* separator = " (";
    for (const auto& [outcome, count] : mOutcomes) {
        Pass pass;
        pass.outcome = outcome;
        mOutput << separator << count << " " << OutcomeText(pass);
        separator = "; ";
    }
    const LineCounts& counts = interpreter.GetCounts();
    mOutput << (mOutcomes.empty() ? "" : ")") << "\nlines: " << counts.entries
            << " entries of the service with " << counts.continuations
            << " further lines; passed over: " << counts.truncated << " truncated, "
            << counts.interleaved << " interleaved, " << counts.foreign << " foreign\n";
    for (const std::string& note : Notes(interpreter)) {
        mOutput << "note: " << note << '\n';
    }
}

int ExitStatus(const LogInterpreter& interpreter) {
    const auto pass = interpreter.GetLastPass();
    if (pass != nullptr && IsBad(pass->outcome)) {
        return kFailedStatus;
    }
    const bool unknown = pass == nullptr ? interpreter.GetCounts().detailed == 0
                                         : pass->outcome == PassOutcome::kRunning ||
                                               pass->outcome == PassOutcome::kUnknown;
    return unknown ? kUnknownStatus : 0;
}

std::vector<std::string> Notes(const LogInterpreter& interpreter) {
    std::vector<std::string> notes;
    if (interpreter.GetCounts().entries == 0) {
        notes.emplace_back("No line of the service is in this log.");
    }
    if (interpreter.IsLevelTooLow()) {
        notes.emplace_back(
            "The log's level was too low to tell: it has errors and warnings only, so triggers, "
            "states and passes that went well are not in it. Log at level info (ARA_LOG_LEVEL).");
    }
    const std::uint64_t dropped = interpreter.GetCounts().dropped;
    if (dropped > 0) {
        notes.push_back("The service could not write " + Plural(dropped, "line") +
                        " of this log; what they said is missing here.");
    }
    return notes;
}

}  // namespace timeline
