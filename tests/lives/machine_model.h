#pragma once

#include <initializer_list>
#include <memory>
#include <string>
#include <utility>

#include "lives/oracle.h"

namespace lives {

/// What every machine has in common: a name, a state, and the two frame states.
class MachineModel : public std::enable_shared_from_this<MachineModel> {
public:
    MachineModel(Oracle& oracle, std::string name) : mOracle(oracle), mName(std::move(name)) {}
    MachineModel(const MachineModel&) = delete;
    MachineModel& operator=(const MachineModel&) = delete;
    virtual ~MachineModel() = default;

    const std::string& Name() const { return mName; }
    const std::string& State() const { return mState; }
    bool Ended() const { return mState == "FsmStateTerminated"; }

    void Deliver(const Event& event) {
        if (Ended()) {
            mOracle.Expect("W " + mName + ": no event expected in state FsmStateTerminated" +
                           Numbers(event));
        } else if (In("FsmStateNotStarted")) {
            mOracle.Expect("E " + mName + ": Error: no event expected in state FsmStateNotStarted" +
                           Numbers(event));
        } else {
            Handle(event);
        }
    }

    /// An event that another thread raises.
    void Post(Event event) {
        if (!mRegistered || Ended()) {
            mOracle.Expect("F " + mName + "GetAsyncEventQueue: No EventDispatcher");
            return;
        }
        event.to = shared_from_this();
        mOracle.Post(std::move(event));
    }

protected:
    virtual void Handle(const Event& event) = 0;

    bool In(const char* state) const { return mState == state; }
    void Registered() { mRegistered = true; }
    void Enter(const char* state) {
        mState = state;
        Shows({"I State transition to " + mState});
    }
    /// What is to be seen next: the machine's lines, letter of the level first, and "> call".
    void Shows(std::initializer_list<std::string> items) {
        for (const std::string& item : items) {
            mOracle.Expect(item[0] == '>' ? "call " + item.substr(2)
                                          : item.substr(0, 2) + mName + ": " + item.substr(2));
        }
    }
    Event To(std::shared_ptr<MachineModel> machine, int id, int info = 0) const {
        return {std::move(machine), id, info};
    }
    void Raise(int id) { mOracle.Raise(To(shared_from_this(), id)); }
    /// Into a state that begins with an event of its own.
    void Enter(const char* state, int id) {
        Raise(id);
        Enter(state);
    }
    void Timer(int id, int msec) { mOracle.RaiseTimer(To(shared_from_this(), id), msec); }

    Oracle& mOracle;

private:
    static std::string Numbers(const Event& event) {
        return ", eventId: " + std::to_string(event.id) +
               ", eventInfo: " + std::to_string(event.info);
    }

    std::string mName;
    std::string mState{"FsmStateNotStarted"};
    bool mRegistered{false};
};

}  // namespace lives
