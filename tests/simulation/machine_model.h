#pragma once

#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "simulation/oracle.h"

namespace simulation {

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
            HandleAfterEnd();
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
    virtual void HandleAfterEnd() = 0;

    bool In(const char* state) const { return mState == state; }
    void Built() { Info("State transition to FsmStateNotStarted"); }
    void Registered() { mRegistered = true; }
    void Enter(const char* state) {
        Info("State transition to " + std::string(state));
        mState = state;
    }
    void Info(const std::string& text) { mOracle.Expect("I " + mName + ": " + text); }
    /// A row of the tables: it is counted if it has a name, and its lines are expected, letter of
    /// the level first.
    void Row(std::string_view row, std::initializer_list<std::string> lines = {}) {
        mOracle.Walk(row);
        for (const std::string& line : lines) {
            mOracle.Expect(line.substr(0, 2) + mName + ": " + line.substr(2));
        }
    }
    void Calls(std::initializer_list<std::string> calls) {
        for (const std::string& call : calls) {
            mOracle.Expect("call " + call);
        }
    }
    Event To(std::shared_ptr<MachineModel> machine, int id, int info = 0) const {
        return {std::move(machine), id, info, 0, 0, false, {}, {}};
    }
    void Raise(int id) { mOracle.Raise(To(shared_from_this(), id)); }
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

}  // namespace simulation
