#include "lives/oracle.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "lives/link_models.h"
#include "lives/machine_model.h"

namespace lives {

using qel_logging::EQELLogLevel;

namespace {

constexpr std::string_view kBorn = ": State transition to FsmStateNotStarted";
constexpr std::string_view kArrow = " -> ";
constexpr std::string_view kEventId = ", eventId ";
constexpr std::string_view kEventInfo = " eventInfo ";
constexpr int kShutdownEvent = 13;

bool EndsWith(const std::string& text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

/// The number behind a text, behind this place of the line; 0 if a word stands there.
int NumberBehind(const std::string& line, std::string_view text, std::size_t place) {
    const std::size_t number = line.find(text, place) + text.size();
    return static_cast<int>(std::strtol(line.c_str() + number, nullptr, 10));
}

}  // namespace

void Oracle::Violate(const std::string& text) {
    if (mViolation.empty()) {
        mViolation = text;
        Story("VIOLATION: " + text);
    }
}

void Oracle::Story(const std::string& text) {
    if (mStory != nullptr) {
        mStory->push_back("[" + std::to_string(clock ? clock() : 0) + " ms] " + text);
    }
}

void Oracle::SeeLine(EQELLogLevel level, const std::string& text) {
    if (level == EQELLogLevel::kInfo && EndsWith(text, kBorn)) {
        ++machinesAlive;
    } else if (level == EQELLogLevel::kDebug && EndsWith(text, ": ~Fsm")) {
        --machinesAlive;
    }
    if (mEnded) {
        return;
    }
    if (level == EQELLogLevel::kVerbose) {
        // The dispatcher's lines of what it delivers, and of what was raised.
        const std::size_t arrow = text.find(kArrow);
        if (arrow != std::string::npos && text.find(" dispatch ") < arrow) {
            BeginDelivery(text, arrow + kArrow.size());
        }
        return;
    }
    if (level == EQELLogLevel::kDebug || text.rfind("EventDispatcher", 0) == 0 ||
        text.rfind("AddFsm: ", 0) == 0) {
        return;
    }
    static constexpr std::string_view kLetters = " FEWI";
    TakeCalls();
    See(kLetters[static_cast<std::size_t>(level)] + (" " + text));
}

void Oracle::SeeTimer(const std::string& machine, int eventId, int msec) {
    TakeCalls();
    See("timer " + machine + " " + std::to_string(eventId) + " " + std::to_string(msec));
}

void Oracle::TakeCalls() {
    for (const std::string& call : mUnit.calls) {
        See("call " + call);
    }
    mUnit.calls.clear();
}

void Oracle::See(std::string observation) {
    Story("    " + observation);
    mSeen.push_back(std::move(observation));
}

void Oracle::BeginDelivery(const std::string& line, std::size_t name) {
    Flush();
    mNow = clock();
    mReceiver = line.substr(name, line.find(kEventId, name) - name);
    mEventId = NumberBehind(line, kEventId, name);
    mEventInfo = NumberBehind(line, kEventInfo, name);
    mDelivery = line.find(" <IOEVENT> ") < name ? Delivery::kDescriptor
                : line.find(" async ") < name   ? Delivery::kPosted
                                                : Delivery::kQueue;
    Story("-> " + line.substr(name));
}

void Oracle::Flush() {
    if (mEnded) {
        return;
    }
    TakeCalls();
    if (mDelivery == Delivery::kNone) {
        if (!mSeen.empty()) {
            Violate("out of nothing came: " + mSeen.front());
            mSeen.clear();
        }
        return;
    }
    Check([this] { Deliver(); });
    mDelivery = Delivery::kNone;
}

void Oracle::Tell(const std::string& what) {
    Flush();
    mNow = clock();
    Story("* " + what);
}

void Oracle::Check(const std::function<void()>& model) {
    TakeCalls();
    model();
    if (!mSeen.empty()) {
        Violate("not expected: " + mSeen.front());
        mSeen.clear();
    }
    for (const auto& machine : machines) {
        const std::string state = realState(*machine);
        if (!state.empty() && state != machine->State()) {
            Violate(machine->Name() + " is in " + state + " instead of " + machine->State());
        }
    }
}

void Oracle::Expect(const std::string& observation) {
    if (mSeen.empty()) {
        Violate("missing: " + observation);
        return;
    }
    if (mSeen.front() != observation) {
        Violate("seen: " + mSeen.front() + "\n  instead of: " + observation);
    }
    mSeen.pop_front();
}

void Oracle::Deliver() {
    if (mDelivery == Delivery::kDescriptor) {
        if (mReceiver == "FsmStreamCommunicator" && exchange) {
            exchange->ReadSocket();
        }
        return;
    }
    std::deque<Event>& queue = mDelivery == Delivery::kQueue ? mQueue : mPosted;
    if (queue.empty() || queue.front().to->Name() != mReceiver || queue.front().id != mEventId ||
        queue.front().info != mEventInfo) {
        if (mEventId == kShutdownEvent && terminationRequested) {
            // A request must not be lost, so it may come twice.
            machines.front()->Deliver({nullptr, kShutdownEvent});
            return;
        }
        Violate("delivered: event " + std::to_string(mEventId) + ", info " +
                std::to_string(mEventInfo) + " to " + mReceiver + ", which is not next");
        return;
    }
    const Event event = std::move(queue.front());
    queue.pop_front();
    if (mDelivery == Delivery::kQueue && event.due != mNow) {
        Violate("event " + std::to_string(event.id) + " of " + mReceiver + " was due at " +
                std::to_string(event.due) + " ms");
    }
    event.to->Deliver(event);
}

void Oracle::Raise(Event event) {
    event.due += mNow;
    const auto place =
        std::upper_bound(mQueue.begin(), mQueue.end(), event.due,
                         [](std::int64_t due, const Event& other) { return due < other.due; });
    mQueue.insert(place, std::move(event));
}

void Oracle::RaiseTimer(Event event, int msec) {
    Expect("timer " + event.to->Name() + " " + std::to_string(event.id) + " " +
           std::to_string(msec));
    event.due = msec;
    Raise(std::move(event));
}

bool Oracle::Drop(const MachineModel* to, int eventId) {
    const auto found = std::find_if(mQueue.begin(), mQueue.end(), [&](const Event& event) {
        return event.to.get() == to && event.id == eventId;
    });
    if (found == mQueue.end()) {
        return false;
    }
    mQueue.erase(found);
    return true;
}

void Oracle::CheckRest(const std::vector<PendingEvent>& pending) {
    Flush();
    if (!std::all_of(mPosted.begin(), mPosted.end(),
                     [](const Event& event) { return event.id == kShutdownEvent; })) {
        Violate("an event from outside was not delivered: " + std::to_string(mPosted.front().id));
    }
    std::vector<PendingEvent> expected;
    for (const Event& event : mQueue) {
        expected.emplace_back(event.to->Name(), event.id, event.info, event.due);
        if (event.due <= clock()) {
            Violate("due but not delivered: event " + std::to_string(event.id));
        }
    }
    if (expected != pending) {
        Violate("the timers differ: " + std::to_string(pending.size()) + " instead of " +
                std::to_string(expected.size()) + ", or at other times");
    }
}

void Oracle::EndLife() {
    mEnded = true;
    mQueue.clear();
    mPosted.clear();
    machines.clear();
    exchange.reset();
}

}  // namespace lives
