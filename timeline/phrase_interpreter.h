#pragma once

#include <string>
#include <string_view>

#include "timeline/event_emitter.h"
#include "timeline/timeline_event.h"

namespace timeline {

/// True for what may be the name of a machine or a state: at most 48 letters, digits, "_" and "/".
bool IsName(std::string_view text);

/// The text, cut behind 200 bytes: no event is as long as a log may be.
std::string Limited(std::string_view text);

/// Knows what the service's texts mean, transitions of machines aside, and emits the events of it.
/// Belongs to the thread of its emitter.
class PhraseInterpreter {
public:
    /// Emitter and counts must outlive it; it counts the dropped lines, and reads whether details
    /// were logged.
    PhraseInterpreter(EventEmitter& events, LineCounts& counts)
        : mEvents(events), mCounts(counts) {}

    /// False if the text begins with none of the known phrases; nothing has happened then.
    bool Interpret(std::string_view text);

private:
    struct Phrase;
    struct Table;

    void Fail(std::string cause);
    void NoteWaitFor(std::string_view what);

    // What a phrase does: `rest` is the text behind it, `says` the table's own word for it.
    void OnProcessEnd(std::string_view rest, std::string_view says);
    void OnMachineEnd(std::string_view rest, std::string_view says);
    void OnTrigger(std::string_view rest, std::string_view says);
    void OnAlert(std::string_view rest, std::string_view says);
    void OnWaitingForTrigger(std::string_view rest, std::string_view says);
    void OnLaneValue(std::string_view rest, std::string_view says);
    void OnSwitch(std::string_view rest, std::string_view says);
    void OnMark(std::string_view rest, std::string_view says);
    void OnBadMark(std::string_view rest, std::string_view says);
    void OnHold(std::string_view rest, std::string_view says);
    void OnClockNotSet(std::string_view rest, std::string_view says);
    void OnEcuMissing(std::string_view rest, std::string_view says);
    void OnVinQuery(std::string_view rest, std::string_view says);
    void OnWhy(std::string_view rest, std::string_view says);
    void OnNoUpdate(std::string_view rest, std::string_view says);
    void OnReason(std::string_view rest, std::string_view says);
    void OnCause(std::string_view rest, std::string_view says);
    void OnHttpStatus(std::string_view rest, std::string_view says);
    void OnBackendResponse(std::string_view rest, std::string_view says);
    void OnFailure(std::string_view rest, std::string_view says);
    void OnVinsDiffer(std::string_view rest, std::string_view says);
    void OnUnexpectedEvent(std::string_view rest, std::string_view says);
    void OnRetry(std::string_view rest, std::string_view says);
    void OnRetryLimit(std::string_view rest, std::string_view says);
    void OnValidationDelay(std::string_view rest, std::string_view says);
    void OnUpdated(std::string_view rest, std::string_view says);
    void OnUpdateFailed(std::string_view rest, std::string_view says);
    void OnDropped(std::string_view rest, std::string_view says);
    void OnNothing(std::string_view rest, std::string_view says);

    EventEmitter& mEvents;
    LineCounts& mCounts;
};

}  // namespace timeline
