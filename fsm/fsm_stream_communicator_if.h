#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include <sys/types.h>

#include "fsm/fsm.h"

namespace fsm {

/// A connected stream socket as a machine: the target sets up what to do next and gets one event
/// per outcome, always with its `mTargetEvent`; the event's info is an `EventInfo`. Nothing blocks.
///
/// It owns its socket from construction on. After a hang-up or an error has been reported it has
/// stopped itself. Dispatcher thread only.
class FsmStreamCommunicatorIf : public Fsm {
public:
    using Fsm::Fsm;

    /// The event infos. Data comes as `FsmEventDataStreamCommunicator`.
    enum EventInfo : int {
        eConnectionClosed = 0,
        /// The N bytes; now idle.
        eReadNComplete = 1,
        /// The bytes of the one read; now idle.
        eReadOnceData = 2,
        /// The bytes of one read; still reading.
        eReadContinuedData = 3,
        eWritable = 4,
        /// Two bytes of data: the low 16 bits of the descriptor, the high byte first; now idle.
        eIoDescriptorReceived = 5,
        /// Empty data, with the error; a peer that closes while a descriptor is awaited, too.
        eReadError = 6,
        eIoError = 7,
        eFsmError = 8,
    };

    enum WriteError : int {
        /// The write failed, or the machine is not active.
        eWriteError = 0,
        /// The socket's buffer is full.
        eWouldBlock = 1,
    };

    /// Takes over the socket. A negative one is accepted; nothing can then be read or written.
    static std::shared_ptr<FsmStreamCommunicatorIf> Create(int ioDescriptor, std::string name);

    /// Registers the machine; it is idle and does not even see a hang-up. Always true.
    virtual bool StartFsm(std::shared_ptr<EventDispatcher> dispatcher, std::shared_ptr<Fsm> target,
                          int targetEvent) = 0;

    /// Read exactly `size` bytes. Like all of the set-ups, false if nothing was done: the machine
    /// is not active, or the size is 0.
    virtual bool SetupReadN(std::size_t size) = 0;
    /// Read once what is there, at most `size` bytes.
    virtual bool SetupReadOnce(std::size_t size) = 0;
    /// Read on and on, at most `size` bytes an event.
    virtual bool SetupReadContinued(std::size_t size) = 0;
    /// Do not read, but watch for a hang-up and for writability.
    virtual bool SetupMonitoring() = 0;
    /// Neither read nor watch: not even a hang-up is reported. What has been read of an unfinished
    /// `SetupReadN` is discarded.
    virtual bool SetupIdle() = 0;
    /// Await a descriptor (unix(7), SCM_RIGHTS); the receiver owns it.
    virtual bool SetupReceiveIoDescriptor() = 0;

    /// Passes a descriptor to the peer; the caller keeps its own. Not retried.
    virtual bool SendIoDescriptor(int ioDescriptor) = 0;

    /// Writes what the socket takes; the number of bytes, or -1 with the reason in `error`, which
    /// may be null.
    virtual ssize_t Write(const unsigned char* buffer, std::size_t length, WriteError* error) = 0;

    /// Asks for `eWritable` events, or no longer. False if the machine is not active.
    virtual bool ConfigureWritableEvent(bool enable) = 0;

    /// Gives the socket up to the caller and stops.
    virtual int SnatchIODescriptor() = 0;

    /// Hands the socket to a fresh communicator, not started yet, and stops.
    virtual std::shared_ptr<FsmStreamCommunicatorIf> Release() = 0;
};

}  // namespace fsm
