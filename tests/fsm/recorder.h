#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "fsm/fsm.h"

namespace testing_support {

/// A machine that notes its events and then does what the test wants.
class Recorder : public fsm::Fsm {
public:
    using Event = std::pair<int, int>;

    explicit Recorder(std::string name = "Recorder") : Fsm(std::move(name)) {}
    ~Recorder() override {
        if (onDestroy) {
            onDestroy();
        }
    }

    void Start(const std::shared_ptr<fsm::EventDispatcher>& dispatcher,
               std::shared_ptr<fsm::Fsm> target = nullptr) {
        SetupFsm(dispatcher, std::move(target), 77);
        SetFsmState(&Recorder::FsmStateRecording, "FsmStateRecording");
    }

    bool HasTarget() const { return mTarget != nullptr; }

    std::vector<Event> events;
    std::function<void(int eventId, int eventInfo)> onEvent;
    std::function<void()> onTerminate;
    std::function<void()> onDestroy;

protected:
    void OnTerminate() override {
        if (onTerminate) {
            onTerminate();
        }
    }

private:
    void FsmStateRecording(int eventId, int eventInfo) {
        events.emplace_back(eventId, eventInfo);
        if (onEvent) {
            onEvent(eventId, eventInfo);
        }
    }
};

/// A payload that tells when it is destroyed.
class TracedData : public fsm::FsmEventData {
public:
    explicit TracedData(std::function<void()> whenDestroyed)
        : mWhenDestroyed(std::move(whenDestroyed)) {}
    ~TracedData() override { mWhenDestroyed(); }

private:
    std::function<void()> mWhenDestroyed;
};

}  // namespace testing_support
