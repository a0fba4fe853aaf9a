#include "timeline/event_emitter.h"

namespace timeline {

namespace {

constexpr std::string_view kBeforeLog = "unknown (not in the log)";
constexpr std::size_t kMaxLanes = 24;

}  // namespace

void EventEmitter::Emit(EventKind kind, std::string lane, std::string text, Tone tone,
                        std::int64_t length) {
    mReceiver({kind, tone, mNow, std::move(lane), std::move(text), length, nullptr});
}

void EventEmitter::Mark(Tone tone, std::string text) {
    Emit(EventKind::kMark, kEventLane, std::move(text), tone);
}

void EventEmitter::MarkProcess(std::string text) {
    Emit(EventKind::kProcess, kEventLane, std::move(text));
}

void EventEmitter::MarkJump(std::int64_t milliseconds) {
    if (mPass) {
        mPass->clockJumped = true;
    }
    Emit(EventKind::kJump, kEventLane, milliseconds < 0 ? "clock set back" : "clock set forward",
         Tone::kPlain, milliseconds);
}

void EventEmitter::Wait(std::int64_t milliseconds, std::string text) {
    Emit(EventKind::kWait, kWaitLane, std::move(text), Tone::kPlain, milliseconds);
}

void EventEmitter::SetLane(const std::string& lane, std::string text) {
    const auto known = mLanes.find(lane);
    if (known == mLanes.end() && mLanes.size() >= kMaxLanes) {
        return;
    }
    mLanes[lane] = text;
    Emit(EventKind::kState, lane, std::move(text));
}

void EventEmitter::ClearLanes() {
    for (auto& [lane, text] : mLanes) {
        if (!text.empty()) {
            text.clear();
            Emit(EventKind::kState, lane, {});
        }
    }
}

const std::string* EventEmitter::FindLane(const std::string& lane) const {
    const auto found = mLanes.find(lane);
    return found == mLanes.end() ? nullptr : &found->second;
}

OpenPass& EventEmitter::BeginPass(std::string_view trigger, bool beginSeen) {
    ClosePass();
    mPass.emplace();
    mPass->number = ++mPassCount;
    mPass->begin = mNow;
    mPass->beginSeen = beginSeen;
    mPass->trigger = trigger;
    Emit(EventKind::kPassBegin, kPassLane, "pass " + std::to_string(mPassCount));
    return *mPass;
}

OpenPass& EventEmitter::CurrentPass() {
    return mPass ? *mPass : BeginPass(kBeforeLog, false);
}

void EventEmitter::ClosePass() {
    if (!mPass) {
        return;
    }
    if (mPass->outcome == PassOutcome::kRunning && mPass->outcomeDetail.empty()) {
        mPass->outcome = PassOutcome::kUnknown;
    }
    mPass->end = mNow;
    Pass& closed = *mPass;
    mLastPass = std::make_shared<const Pass>(std::move(closed));
    mPass.reset();
    mReceiver({EventKind::kPassEnd, Tone::kPlain, mNow, kPassLane, OutcomeText(*mLastPass), 0,
               mLastPass});
    if (mLanes.count(kReasonLane) != 0) {
        SetLane(kReasonLane, {});
    }
}

void EventEmitter::CutPass(std::string_view why) {
    if (mPass && mPass->outcome == PassOutcome::kRunning) {
        mPass->outcome = PassOutcome::kCutOff;
        mPass->outcomeDetail = why;
    }
    ClosePass();
}

}  // namespace timeline
