#pragma once

#include <memory>
#include <vector>

#include "fsm/fsm.h"

namespace vintrel {

/// A target that keeps what it is told.
class EventRecorder : public fsm::Fsm {
public:
    struct Event {
        int id;
        int info;
        std::unique_ptr<fsm::FsmEventData> data;

        template <typename Data>
        const Data& As() const {
            return dynamic_cast<const Data&>(*data);
        }
    };

    EventRecorder() : Fsm("EventRecorder") {}

    void StartFsm(const std::shared_ptr<fsm::EventDispatcher>& dispatcher) {
        SetupFsm(dispatcher, nullptr, 0);
        SetFsmState(&EventRecorder::FsmStateRecording, "FsmStateRecording");
    }

    std::vector<Event> events;

protected:
    void OnTerminate() override {}

private:
    void FsmStateRecording(int eventId, int eventInfo) {
        events.push_back({eventId, eventInfo, GetDispatcher()->TakeEventData()});
    }
};

}  // namespace vintrel
