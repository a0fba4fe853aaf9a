#include "testing/waiting.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/time.h>

namespace testing_support {

void GuardReads(int socket) {
    const timeval limit{kHangGuard.count(), 0};
    EXPECT_EQ(::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit)), 0);
}

void Gate::Open() {
    const std::lock_guard<std::mutex> lock(mMutex);
    ++mOpenings;
    mOpened.notify_all();
}

bool Gate::Pass() {
    std::unique_lock<std::mutex> lock(mMutex);
    const bool isOpen = mOpened.wait_for(lock, kHangGuard, [this] { return mOpenings > 0; });
    EXPECT_TRUE(isOpen) << "the gate stays shut";
    return isOpen;
}

int Gate::Openings() const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return mOpenings;
}

}  // namespace testing_support
