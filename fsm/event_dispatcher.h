#pragma once

#include <list>
#include <memory>
#include <string>
#include <vector>

#include <poll.h>

#include "fsm/async_event_door.h"
#include "fsm/event_queue.h"
#include "fsm/io_event.h"

namespace fsm {

/// The loop of the process: waits for descriptors and due events, and hands them one at a time to
/// the state methods of the machines.
///
/// Always owned by a `std::shared_ptr`; machines hold a `std::weak_ptr` to it. It keeps registered
/// machines alive. All operations belong to the thread of the queue; other threads come in through
/// `Fsm::RaiseAsyncEvent`. Misuse is logged at Fatal level and has no further effect unless stated.
class EventDispatcher : public EventQueue, public std::enable_shared_from_this<EventDispatcher> {
public:
    /// What a machine may request for a descriptor.
    enum IoEventType : int {
        kIoRead = 0,     ///< report readable
        kIoWrite = 1,    ///< report writable
        kIoDisable = 2,  ///< keep the descriptor out of `poll`
        kIoRdhup = 3,    ///< report that the peer has closed its writing side
    };

    /// With `createAsyncQueue` the first `AddFsm` makes the asynchronous queue.
    explicit EventDispatcher(std::string name, bool createAsyncQueue = true);
    ~EventDispatcher() override;

    /// Registers the machine; that it is registered already is not checked.
    void AddFsm(const std::shared_ptr<Fsm>& fsm);
    /// Unregisters the machine and all its descriptors.
    void RemoveFsm(const std::shared_ptr<Fsm>& fsm);
    /// Whether the machine is registered; the question is logged at Debug level.
    bool IsFsmRegistered(const std::shared_ptr<Fsm>& fsm) const;

    /// Watches a descriptor for a registered machine; nothing is requested until it is configured.
    /// The descriptor stays the caller's.
    void AddIoDescriptor(const std::shared_ptr<Fsm>& fsm, int ioDescriptor, int eventId);
    /// Watches the descriptor no more. Ends the current walk over the ready descriptors; the rest
    /// are served in the next round.
    void RemoveIoDescriptor(const std::shared_ptr<Fsm>& fsm, int ioDescriptor);
    /// Switches one request for a watched descriptor on or off, from the next wait on; does not end
    /// the current walk over the ready descriptors.
    void ConfigureIoDescriptor(const std::shared_ptr<Fsm>& fsm, int ioDescriptor, IoEventType type,
                               bool enable);

    /// Runs until a state method calls `ExitDispatching` and returns the result given there. What a
    /// state method throws comes out here.
    bool DispatchEvents();

    /// One round: waits, serves every ready descriptor, then due events. False to stop.
    bool DispatchStep();

    /// Called by a state method: the loop ends as soon as that method returns.
    void ExitDispatching(bool result);

    /// Stops and drops the asynchronous queue.
    void TerminateDispatching();

    /// Delivers one event; true if the exit has been requested. The caller keeps the machine alive.
    bool Invoke(Fsm& fsm, int eventId, int eventInfo, std::unique_ptr<FsmEventData> data);

    /// Hands out the payload of the event being delivered, once; null if there is none. A state
    /// method takes it by `Fsm::TakeEventData`, which checks its class.
    std::unique_ptr<FsmEventData> TakeEventData();

    std::shared_ptr<AsyncEventQueueIf> GetAsyncEventQueue() const { return mAsyncDoor->Queue(); }

protected:
    /// Waits for the descriptors as `poll(2)` does. A test dispatcher on virtual time replaces it.
    virtual int Poll(std::vector<pollfd>& pollFds, int timeoutMillisec);

private:
    friend class Fsm;

    struct IoData {
        int ioDescriptor;
        int eventId;
        bool read;
        bool write;
        bool disabled;
        bool rdhup;
        std::shared_ptr<Fsm> fsm;
    };

    struct fsmIoGroup {
        std::shared_ptr<Fsm> fsm;
        std::list<IoData> ioData;
    };

    using GroupIterator = std::list<fsmIoGroup>::iterator;
    using IoDataIterator = std::list<IoData>::iterator;

    GroupIterator FindGroup(const Fsm* fsm);
    static IoDataIterator FindIoData(fsmIoGroup& group, int ioDescriptor);
    static void FillPollFd(const IoData& ioData, pollfd& pollFd);
    void UpdatePollStruct();
    void CreateAsyncQueue();
    bool ServeReadyDescriptors();
    bool DeliverDueEvents();
    void LogFailure(const std::string& text) const;

    std::unique_ptr<FsmEventData> mEventData;
    bool mExitRequested{false};
    bool mExitResult{false};
    std::list<fsmIoGroup> mIoGroups;
    bool mPollDirty{false};
    std::vector<IoData*> mIoDataPtrs;
    std::vector<pollfd> mPollFds;
    bool mCreateAsyncQueue;
    std::shared_ptr<AsyncEventDoor> mAsyncDoor;
};

}  // namespace fsm
