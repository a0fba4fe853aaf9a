#include "backend/socket_connect_cb.h"

#include <utility>

#include <unistd.h>

#include "backend/zem_connector_fsm.h"
#include "logging/qel_logging.h"

namespace vintrel {

using qel_logging::QELLogging;

SocketConnectCb::SocketConnectCb(ZemConnectorFsm* fsm, int eventId, int id)
    : mFsm(fsm),
      mTraceName("SocketConnectCb_" + std::to_string(id) + "_"),
      mEventId(eventId),
      mId(id) {}

SocketConnectCb::~SocketConnectCb() {
    CloseSocket(mSocketFileDescriptor);
}

void SocketConnectCb::ZemSocketResult(zem_connector::SocketResult result) {
    if (!Accept(result)) {
        QELLogging::LogError(mTraceName, ": Unexpected socket result dropped");
        if (!IsAcceptedSocket(result.socketFileDescriptor)) {
            CloseSocket(result.socketFileDescriptor);
        }
        return;
    }
    if (result.status != 0) {
        QELLogging::LogError(mTraceName, ": Connection failed: ", result.status);
    } else {
        QELLogging::LogInfo(mTraceName, ": Connection established");
    }
    mFsm->RaiseCallbackEvent(mEventId, mId);
}

bool SocketConnectCb::Accept(const zem_connector::SocketResult& result) {
    const std::lock_guard<std::mutex> lock(mMutex);
    if (mHasResult || mAbandoned) {
        return false;
    }
    mHasResult = true;
    mSocketFileDescriptor = result.socketFileDescriptor;
    mAcceptedSocket = result.socketFileDescriptor;
    mSocketStatus = result.status;
    return true;
}

bool SocketConnectCb::IsAcceptedSocket(int socketFileDescriptor) const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return socketFileDescriptor == mAcceptedSocket;
}

void SocketConnectCb::Abandon() {
    int socketFileDescriptor = -1;
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mAbandoned = true;
        std::swap(socketFileDescriptor, mSocketFileDescriptor);
    }
    CloseSocket(socketFileDescriptor);
}

bool SocketConnectCb::HasResult() const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return mHasResult;
}

int SocketConnectCb::GetSocketStatus() const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return mSocketStatus;
}

int SocketConnectCb::GetSocketFileDescriptor() const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return mSocketFileDescriptor;
}

void SocketConnectCb::SetSocketFileDescriptor(int socketFileDescriptor) {
    const std::lock_guard<std::mutex> lock(mMutex);
    mSocketFileDescriptor = socketFileDescriptor;
}

const std::string& SocketConnectCb::GetTraceName() const {
    return mTraceName;
}

void SocketConnectCb::CloseSocket(int socketFileDescriptor) const {
    if (socketFileDescriptor >= 0 && close(socketFileDescriptor) != 0) {
        QELLogging::LogError(mTraceName, ": Failed to close the SocketFileDescriptor!");
    }
}

}  // namespace vintrel
