#include "fsm/event_dispatcher.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cerrno>
#include <cstdio>
#include <utility>

#include "fsm/async_event_queue.h"
#include "fsm/fsm.h"
#include "logging/qel_logging.h"

namespace fsm {

using qel_logging::EQELLogLevel;
using qel_logging::QELLogging;

namespace {

std::string HexFlags(int flags) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "0x%08x", static_cast<unsigned int>(flags));
    return text.data();
}

/// What takes a descriptor out of `poll`: its complement, which is negative. A negative one is left
/// as it is, since its complement could be somebody else's descriptor.
int DisabledDescriptor(int ioDescriptor) {
    return ioDescriptor < 0 ? ioDescriptor : ~ioDescriptor;
}

void SetFlag(short& events, short flag, bool enable) {
    events = static_cast<short>(enable ? events | flag : events & ~flag);
}

}  // namespace

EventDispatcher::EventDispatcher(std::string name, bool createAsyncQueue)
    : EventQueue(std::move(name)),
      mCreateAsyncQueue(createAsyncQueue),
      mAsyncDoor(std::make_shared<AsyncEventDoor>()) {}

EventDispatcher::~EventDispatcher() {
    QELLogging::LogInfo("~EventDispatcher");
    mAsyncDoor->ShutForever();
    // A machine that was not stopped would keep its owner alive through its target, and the owner
    // the machine.
    std::vector<std::shared_ptr<Fsm>> targets;
    for (const fsmIoGroup& group : mIoGroups) {
        targets.push_back(std::move(group.fsm->mTarget));
    }
}

void EventDispatcher::AddFsm(const std::shared_ptr<Fsm>& fsm) {
    assert(IsOwnThread());
    QELLogging::LogInfo("AddFsm: ", fsm->GetName());
    if (mCreateAsyncQueue && GetAsyncEventQueue() == nullptr) {
        CreateAsyncQueue();
    }
    mIoGroups.push_back({fsm, {}});
}

void EventDispatcher::CreateAsyncQueue() {
    const auto queue = std::make_shared<AsyncEventQueue>(GetName() + "/AsyncEventQueue");
    // `Initialize` comes back to `AddFsm`, which must find the queue in place.
    mAsyncDoor->Open(queue);
    queue->Initialize(shared_from_this());
}

void EventDispatcher::RemoveFsm(const std::shared_ptr<Fsm>& fsm) {
    assert(IsOwnThread());
    QELLogging::LogInfo(GetName(), " RemoveFsm: ", fsm->GetName());
    const auto group = FindGroup(fsm.get());
    if (group == mIoGroups.end()) {
        LogFailure(" RemoveFsm: fsm " + fsm->GetName() + " not found");
        return;
    }
    // Destroyed at the end, when the list is whole again: the machine may go with it.
    std::list<fsmIoGroup> removed;
    removed.splice(removed.begin(), mIoGroups, group);
    mPollDirty = true;
}

bool EventDispatcher::IsFsmRegistered(const std::shared_ptr<Fsm>& fsm) const {
    assert(IsOwnThread());
    QELLogging::LogDebug(GetName(), " IsFsmRegistered: ", fsm->GetName());
    return std::any_of(mIoGroups.begin(), mIoGroups.end(),
                       [&fsm](const fsmIoGroup& group) { return group.fsm == fsm; });
}

void EventDispatcher::AddIoDescriptor(const std::shared_ptr<Fsm>& fsm, int ioDescriptor,
                                      int eventId) {
    assert(IsOwnThread());
    if (ioDescriptor < 0) {
        LogFailure(" AddIoDescriptor: IO descriptor must not be negative : FSM " + fsm->GetName());
    }
    const auto group = FindGroup(fsm.get());
    if (group == mIoGroups.end()) {
        LogFailure(" AddIoDescriptor: FSM " + fsm->GetName() + " not found");
        return;
    }
    mPollDirty = true;
    if (FindIoData(*group, ioDescriptor) != group->ioData.end()) {
        LogFailure(" AddIoDescriptor: FSM " + fsm->GetName() + " cannot add IO descriptor again");
        return;
    }
    group->ioData.push_back({ioDescriptor, eventId, false, false, false, false, group->fsm});
}

void EventDispatcher::RemoveIoDescriptor(const std::shared_ptr<Fsm>& fsm, int ioDescriptor) {
    assert(IsOwnThread());
    const auto group = FindGroup(fsm.get());
    if (group == mIoGroups.end()) {
        LogFailure(" RemoveIoDescriptor: fsm " + fsm->GetName() + " not found");
        return;
    }
    const auto ioData = FindIoData(*group, ioDescriptor);
    if (ioData == group->ioData.end()) {
        LogFailure(" RemoveIoDescriptor " + std::to_string(ioDescriptor) + " not found");
        return;
    }
    group->ioData.erase(ioData);
    mPollDirty = true;
}

void EventDispatcher::ConfigureIoDescriptor(const std::shared_ptr<Fsm>& fsm, int ioDescriptor,
                                            IoEventType type, bool enable) {
    assert(IsOwnThread());
    if (mPollDirty) {
        UpdatePollStruct();
    }
    const auto failure = [&fsm](const std::string& text) {
        return " ConfigureIoDescriptor: FSM " + fsm->GetName() + text;
    };
    const auto group = FindGroup(fsm.get());
    if (group == mIoGroups.end()) {
        LogFailure(failure(" FSM not found"));
        return;
    }
    const auto ioData = FindIoData(*group, ioDescriptor);
    if (ioData == group->ioData.end()) {
        LogFailure(failure(" IO descriptor not found"));
        return;
    }
    switch (type) {
        case kIoRead:
            ioData->read = enable;
            break;
        case kIoWrite:
            ioData->write = enable;
            break;
        case kIoDisable:
            ioData->disabled = enable;
            break;
        case kIoRdhup:
            ioData->rdhup = enable;
            break;
        default:
            LogFailure(failure(" unknown event type in ioData set: " + std::to_string(type)));
            LogFailure(failure(" unknown event type in PollStruct set: " + std::to_string(type)));
            return;
    }
    // By owner, not by number: two machines may watch the same descriptor.
    const auto known = std::find(mIoDataPtrs.begin(), mIoDataPtrs.end(), &*ioData);
    if (known == mIoDataPtrs.end()) {
        LogFailure(failure(" ioDescriptor " + std::to_string(ioDescriptor) +
                           " not found, internal dispatcher error"));
        return;
    }
    FillPollFd(*ioData, mPollFds[static_cast<std::size_t>(known - mIoDataPtrs.begin())]);
}

EventDispatcher::GroupIterator EventDispatcher::FindGroup(const Fsm* fsm) {
    return std::find_if(mIoGroups.begin(), mIoGroups.end(),
                        [fsm](const fsmIoGroup& group) { return group.fsm.get() == fsm; });
}

EventDispatcher::IoDataIterator EventDispatcher::FindIoData(fsmIoGroup& group, int ioDescriptor) {
    return std::find_if(
        group.ioData.begin(), group.ioData.end(),
        [ioDescriptor](const IoData& ioData) { return ioData.ioDescriptor == ioDescriptor; });
}

void EventDispatcher::FillPollFd(const IoData& ioData, pollfd& pollFd) {
    pollFd.fd = ioData.disabled ? DisabledDescriptor(ioData.ioDescriptor) : ioData.ioDescriptor;
    SetFlag(pollFd.events, POLLIN, ioData.read);
    SetFlag(pollFd.events, POLLOUT, ioData.write);
    SetFlag(pollFd.events, POLLRDHUP, ioData.rdhup);
}

void EventDispatcher::UpdatePollStruct() {
    std::size_t count = 0;
    for (const fsmIoGroup& group : mIoGroups) {
        count += group.ioData.size();
    }
    mIoDataPtrs.resize(count);
    mPollFds.resize(count);
    std::size_t index = 0;
    for (fsmIoGroup& group : mIoGroups) {
        for (IoData& ioData : group.ioData) {
            mIoDataPtrs[index] = &ioData;
            FillPollFd(ioData, mPollFds[index]);
            ++index;
        }
    }
}

bool EventDispatcher::DispatchEvents() {
    AdoptThread();
    mExitRequested = false;
    while (DispatchStep()) {
    }
    return mExitResult;
}

bool EventDispatcher::DispatchStep() {
    assert(IsOwnThread());
    if (mPollDirty) {
        UpdatePollStruct();
        mPollDirty = false;
    }
    if (!mIoDataPtrs.empty()) {
        const int ready = Poll(mPollFds, NextTimeoutMillisec());
        if (ready < 0) {
            const int error = errno;
            QELLogging::LogDebug(GetName(), " poll result ", ready, " errno: ", error);
            return true;
        }
        if (ready > 0 && ServeReadyDescriptors()) {
            TerminateDispatching();
            return false;
        }
    }
    if (DeliverDueEvents()) {
        TerminateDispatching();
        return false;
    }
    return true;
}

int EventDispatcher::Poll(std::vector<pollfd>& pollFds, int timeoutMillisec) {
    return poll(pollFds.data(), pollFds.size(), timeoutMillisec);
}

bool EventDispatcher::ServeReadyDescriptors() {
    for (std::size_t i = 0; i < std::min(mIoDataPtrs.size(), mPollFds.size()); ++i) {
        const short revents = mPollFds[i].revents;
        if (revents == 0) {
            continue;
        }
        const int eventId = mIoDataPtrs[i]->eventId;
        // The entry, and with it the last owner, may disappear during the call.
        const std::shared_ptr<Fsm> fsm = mIoDataPtrs[i]->fsm;
        if (QELLogging::IsEnabled(EQELLogLevel::kVerbose)) {
            QELLogging::LogVerbose(GetName(), " EVENT dispatch <IOEVENT> -> ", fsm->GetName(),
                                   ", eventId ", eventId, " eventInfo ", PollFlagString(revents),
                                   " (", HexFlags(revents), ")");
        }
        if (Invoke(*fsm, eventId, revents, nullptr)) {
            return true;
        }
        if (mPollDirty) {
            return false;
        }
    }
    return false;
}

bool EventDispatcher::DeliverDueEvents() {
    EventQueueModified();
    while (true) {
        // Keeps the machine alive until its state method has returned.
        Events::node_type node = TakeDueEvent();
        if (node.empty()) {
            return false;
        }
        EventQueueEvent& event = node.value();
        QELLogging::LogVerbose(GetName(), " EVENT dispatch <EVENT QUEUE> -> ", event.fsm->GetName(),
                               ", eventId ", event.eventId, " eventInfo ", event.eventInfo);
        const bool exitRequested =
            Invoke(*event.fsm, event.eventId, event.eventInfo, std::move(event.data));
        mEventData.reset();
        if (exitRequested) {
            return true;
        }
        if (EventQueueModified()) {
            return false;
        }
    }
}

void EventDispatcher::ExitDispatching(bool result) {
    assert(IsOwnThread());
    QELLogging::LogInfo(GetName(), " ExitDispatching");
    mExitRequested = true;
    mExitResult = result;
}

void EventDispatcher::TerminateDispatching() {
    assert(IsOwnThread());
    const std::shared_ptr<AsyncEventQueue> queue = mAsyncDoor->Shut();
    if (queue != nullptr) {
        queue->Stop();
    }
}

bool EventDispatcher::Invoke(Fsm& fsm, int eventId, int eventInfo,
                             std::unique_ptr<FsmEventData> data) {
    mEventData = std::move(data);
    fsm.InvokeStateMethod(eventId, eventInfo);
    return mExitRequested;
}

std::unique_ptr<FsmEventData> EventDispatcher::TakeEventData() {
    return std::move(mEventData);
}

void EventDispatcher::LogFailure(const std::string& text) const {
    QELLogging::LogFatal(GetName(), text);
}

}  // namespace fsm
