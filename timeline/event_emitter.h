#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "timeline/timeline_event.h"

namespace timeline {

/// Lanes that are no state machines.
inline constexpr const char* kPassLane = "Passes";
inline constexpr const char* kEventLane = "Events";
inline constexpr const char* kWaitLane = "Waiting";
inline constexpr const char* kReasonLane = "Activation reason";

/// A pass that has not ended yet, with what its next lines refer to.
struct OpenPass : Pass {
    /// What the current attempt fails by, if it fails.
    std::string cause;
    /// The finding of the check of the stored certificate.
    std::string why;
    std::string httpStatus;
    /// The next query for the VIN begins another attempt.
    bool retryPending{false};
    bool retryLimit{false};
    std::uint32_t retries{0};
};

/// Emits the events of a log and keeps what they depend on: the moment, what each lane shows, and
/// the open pass, of which there is one at most.
///
/// Bounded memory: names beyond the 24th get no lane. Belongs to one thread; the receiver is called
/// on it, during the calls here.
class EventEmitter {
public:
    explicit EventEmitter(EventReceiver receiver) : mReceiver(std::move(receiver)) {}

    const Moment& GetNow() const { return mNow; }
    /// The moment of all events from here on.
    void SetNow(const Moment& now) { mNow = now; }

    void Mark(Tone tone, std::string text);
    void MarkProcess(std::string text);
    /// The clock jumped by so many milliseconds; 0 if it is unknown by how many.
    void MarkJump(std::int64_t milliseconds);
    void Wait(std::int64_t milliseconds, std::string text);

    /// The lane shows the text from now on; nothing if it is empty.
    void SetLane(const std::string& lane, std::string text);
    void ClearLanes();
    /// What a lane shows; null if it never showed anything.
    const std::string* FindLane(const std::string& lane) const;

    /// Begins a pass; one that is open is closed before.
    OpenPass& BeginPass(std::string_view trigger, bool beginSeen);
    /// The open pass; one whose beginning is not in the log begins here.
    OpenPass& CurrentPass();
    /// The open pass, or null.
    OpenPass* FindPass() { return mPass ? &*mPass : nullptr; }
    /// Reports the open pass, if any, with the outcome that it has by now.
    void ClosePass();
    /// Closes the open pass, if any, as cut off for this reason, unless its outcome is known.
    void CutPass(std::string_view why);

    /// The last pass that was closed, or null.
    std::shared_ptr<const Pass> GetLastPass() const { return mLastPass; }

private:
    void Emit(EventKind kind, std::string lane, std::string text, Tone tone = Tone::kPlain,
              std::int64_t length = 0);

    EventReceiver mReceiver;
    Moment mNow;
    std::map<std::string, std::string> mLanes;
    std::optional<OpenPass> mPass;
    std::uint64_t mPassCount{0};
    std::shared_ptr<const Pass> mLastPass;
};

}  // namespace timeline
