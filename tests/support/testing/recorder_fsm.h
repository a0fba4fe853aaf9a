#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "fsm/fsm.h"

namespace testing_support {

/// A machine that notes its events and then does what the test wants.
class RecorderFsm : public fsm::Fsm {
public:
    /// Id and info.
    using Event = std::pair<int, int>;

    explicit RecorderFsm(std::string name = "Recorder") : Fsm(std::move(name)) {}
    ~RecorderFsm() override {
        if (onDestroy) {
            onDestroy();
        }
    }

    void Start(const std::shared_ptr<fsm::EventDispatcher>& dispatcher,
               std::shared_ptr<fsm::Fsm> target = nullptr) {
        SetupFsm(dispatcher, std::move(target), 77);
        SetFsmState(&RecorderFsm::FsmStateRecording, "FsmStateRecording");
    }

    bool HasTarget() const { return mTarget != nullptr; }

    /// The payload of the event that is being handled.
    using Fsm::TakeEventData;

    /// From here on it takes the payload of each event, for `Payload`.
    void KeepPayloads() { mKeepsPayloads = true; }
    template <typename Data>
    const Data& Payload(std::size_t event) const {
        return dynamic_cast<const Data&>(*mPayloads.at(event));
    }

    void Clear() {
        events.clear();
        mPayloads.clear();
    }

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
        if (mKeepsPayloads) {
            mPayloads.push_back(GetDispatcher()->TakeEventData());
        }
        if (onEvent) {
            onEvent(eventId, eventInfo);
        }
    }

    bool mKeepsPayloads{false};
    std::vector<std::unique_ptr<fsm::FsmEventData>> mPayloads;
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
