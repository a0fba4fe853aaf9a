#pragma once

#include <mutex>
#include <string>

#include <zem_connector/zem_socket_callback_if.h>

namespace vintrel {

class ZemConnectorFsm;

/// Receives the one result of a socket attempt and owns the socket until it is taken.
///
/// The result comes on a thread of the connector library; everything else happens on the
/// dispatcher thread. A second result, or one that comes after `Abandon`, is dropped and its
/// socket closed.
class SocketConnectCb : public zem_connector::ZemSocketCallbackIf {
public:
    /// `RaiseCallbackEvent(eventId, id)` reports the result to `fsm`, which must outlive this.
    SocketConnectCb(ZemConnectorFsm* fsm, int eventId, int id);
    SocketConnectCb(const SocketConnectCb&) = delete;
    SocketConnectCb& operator=(const SocketConnectCb&) = delete;
    ~SocketConnectCb() override;

    void ZemSocketResult(zem_connector::SocketResult result) override;

    /// Gives up the result: closes a socket that has arrived and any that arrives later.
    void Abandon();

    /// True once the result is here.
    bool HasResult() const;

    /// 0 means connected; 1 until there is a result.
    int GetSocketStatus() const;

    /// -1 if there is no socket.
    int GetSocketFileDescriptor() const;

    /// Does not close the socket that was held: -1 means that it has another owner now.
    void SetSocketFileDescriptor(int socketFileDescriptor);

    const std::string& GetTraceName() const;

private:
    /// Stores the result; false if none is expected.
    bool Accept(const zem_connector::SocketResult& result);
    bool IsAcceptedSocket(int socketFileDescriptor) const;
    void CloseSocket(int socketFileDescriptor) const;

    ZemConnectorFsm* mFsm;
    std::string mTraceName;
    int mEventId;
    int mId;
    int mSocketFileDescriptor{-1};
    /// Kept for good: a repeated result with the same number is the socket that has an owner
    /// already, and must not be closed under it.
    int mAcceptedSocket{-1};
    int mSocketStatus{1};
    bool mHasResult{false};
    bool mAbandoned{false};
    mutable std::mutex mMutex;
};

}  // namespace vintrel
