#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "timeline/log_line.h"

namespace timeline {

/// A moment of the log. The axis only ever goes forwards: it adds up the times between the lines
/// and leaves out the jumps of the clock, so a length on it is a length of time.
struct Moment {
    /// Milliseconds since the log's first line; in a log without times the number of lines.
    std::int64_t axis{0};
    /// What the clock showed, in milliseconds on `base`.
    std::int64_t time{0};
    TimeBase base{TimeBase::kNone};
};

/// "2026-11-21T17:02:03.009Z", "[12.345 s after start]", "(no time)".
std::string ToText(const Moment& moment);

enum class PassOutcome : std::uint8_t {
    kNoUpdateNeeded,
    kStored,
    kFailed,
    /// The machine or the process ended in the middle.
    kCutOff,
    /// The log ended first.
    kRunning,
    /// The machine waits for triggers again; the lines with the reason are not in the log.
    kUnknown
};

/// From a trigger until the client machine waits for the next one.
struct Pass {
    /// Counts from 1 in the order of the log.
    std::uint64_t number{0};
    Moment begin;
    Moment end;
    /// False if the log begins, or its lines become readable, in the middle of the pass.
    bool beginSeen{false};
    /// True if the clock jumped meanwhile; the length leaves the jump out.
    bool clockJumped{false};
    std::string trigger;
    /// The decision and its reason; empty if there was none.
    std::string decision;
    /// Runs through the update; a retry is one more.
    std::uint32_t attempts{0};
    /// What made attempts fail, with how many it was.
    std::vector<std::pair<std::string, std::uint32_t>> causes;
    /// What the pass had to wait for, with how often it asked.
    std::vector<std::pair<std::string, std::uint32_t>> waits;
    PassOutcome outcome{PassOutcome::kRunning};
    /// With `kFailed`, `kCutOff`, `kRunning`: why, or in which state.
    std::string outcomeDetail;
};

/// "certificate stored", "failed: ..." and so on.
std::string OutcomeText(const Pass& pass);
/// True for a pass that failed or was cut off.
bool IsBad(PassOutcome outcome);

enum class EventKind : std::uint8_t {
    /// The lane shows `text` from here on, until its next event; nothing if `text` is empty.
    kState,
    /// Something that happened.
    kMark,
    /// The service, or the machine that it runs on, started or ended.
    kProcess,
    /// A wait of `length` begins on the lane; a next state of the client machine ends it early.
    kWait,
    /// The clock jumped by `length` milliseconds; 0 if it is unknown by how many.
    kJump,
    kPassBegin,
    kPassEnd
};

enum class Tone : std::uint8_t {
    kPlain,
    kTrigger,
    kGood,
    kBad,
    /// An unknown line at error: its effect on the pass is not known.
    kError
};

struct Event {
    EventKind kind{EventKind::kMark};
    Tone tone{Tone::kPlain};
    Moment moment;
    std::string lane;
    std::string text;
    /// Milliseconds, with `kWait` and `kJump` only.
    std::int64_t length{0};
    /// With `kPassEnd` only.
    std::shared_ptr<const Pass> pass;
};

/// Gets the events in the order of the log; the reference is valid during the call.
using EventReceiver = std::function<void(const Event&)>;

/// How many lines were what.
struct LineCounts {
    std::uint64_t entries{0};
    std::uint64_t continuations{0};
    std::uint64_t truncated{0};
    std::uint64_t interleaved{0};
    std::uint64_t foreign{0};
    /// Entries at info and below, among them all transitions of the machines.
    std::uint64_t detailed{0};
    /// Lines that the service reports it could not write.
    std::uint64_t dropped{0};
};

void to_json(nlohmann::json& json, const Moment& moment);
void to_json(nlohmann::json& json, const Pass& pass);
void to_json(nlohmann::json& json, const Event& event);
void to_json(nlohmann::json& json, const LineCounts& counts);

}  // namespace timeline
