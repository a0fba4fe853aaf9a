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

/// Maps the service's texts, transitions of machines aside, to events. Belongs to the thread of its
/// emitter.
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

    // What a phrase causes: `rest` is the text behind it, `label` what the timeline calls it.
    void OnProcessEnd(std::string_view rest, std::string_view label);
    void OnMachineEnd(std::string_view rest, std::string_view label);
    void OnTrigger(std::string_view rest, std::string_view label);
    void OnAlert(std::string_view rest, std::string_view label);
    void OnWaitingForTrigger(std::string_view rest, std::string_view label);
    void OnLaneValue(std::string_view rest, std::string_view label);
    void OnSwitch(std::string_view rest, std::string_view label);
    void OnMark(std::string_view rest, std::string_view label);
    void OnBadMark(std::string_view rest, std::string_view label);
    void OnHold(std::string_view rest, std::string_view label);
    void OnClockNotSet(std::string_view rest, std::string_view label);
    void OnEcuMissing(std::string_view rest, std::string_view label);
    void OnVinQuery(std::string_view rest, std::string_view label);
    void OnWhy(std::string_view rest, std::string_view label);
    void OnNoUpdate(std::string_view rest, std::string_view label);
    void OnReason(std::string_view rest, std::string_view label);
    void OnCause(std::string_view rest, std::string_view label);
    void OnHttpStatus(std::string_view rest, std::string_view label);
    void OnBackendResponse(std::string_view rest, std::string_view label);
    void OnFailure(std::string_view rest, std::string_view label);
    void OnVinsDiffer(std::string_view rest, std::string_view label);
    void OnUnexpectedEvent(std::string_view rest, std::string_view label);
    void OnRetry(std::string_view rest, std::string_view label);
    void OnRetryLimit(std::string_view rest, std::string_view label);
    void OnValidationDelay(std::string_view rest, std::string_view label);
    void OnUpdated(std::string_view rest, std::string_view label);
    void OnUpdateFailed(std::string_view rest, std::string_view label);
    void OnDropped(std::string_view rest, std::string_view label);
    void OnNothing(std::string_view rest, std::string_view label);

    EventEmitter& mEvents;
    LineCounts& mCounts;
};

}  // namespace timeline
