#include "connector_core.h"

#include <cstring>
#include <future>
#include <thread>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zem_connector_host/connector_file.h>

#include "callback_recorder.h"
#include "tcp_listener.h"
#include "testing/temporary_directory.h"

namespace zem_connector {

/// The core on a thread of its own, with a look-up that the test decides.
class ConnectorCoreTest : public testing::Test {
protected:
    void Start(const NameLookup& lookup, std::chrono::milliseconds limit) {
        host::ConnectorFile file;
        file.connectTimeout = limit;
        const std::string path = mDirectory.File("file.json");
        ASSERT_TRUE(file.WriteAtomically(path));
        mCore = std::make_shared<ConnectorCore>(path, nullptr, lookup);
        ASSERT_EQ(mCore->Open(), SessionStatus::kStarted);
        mThread = std::thread([core = mCore] { core->Run(); });
    }

    void TearDown() override {
        mCore->Close();
        mThread.join();
    }

    static SocketAddress AddressOf(const TcpListener& listener) {
        SocketAddress address;
        std::memcpy(&address.storage, &listener.SocketAddress(), sizeof(sockaddr_in));
        address.length = sizeof(sockaddr_in);
        return address;
    }

    static std::string Status(host::SocketStatus status) {
        return "socket " + std::to_string(status);
    }

    static constexpr std::chrono::milliseconds kLong{600000};

    testing_support::TemporaryDirectory mDirectory;
    CallbackRecorder mRecorder;
    std::shared_ptr<ConnectorCore> mCore;
    std::thread mThread;
};

TEST_F(ConnectorCoreTest, AddressesAreTriedInTurnUntilOneAnswers) {
    TcpListener refusing;
    refusing.Close();
    TcpListener silent(0);
    silent.StopAnswering();
    TcpListener answering;
    NameLookupResult found;
    found.addresses = {AddressOf(refusing), AddressOf(silent), AddressOf(answering)};
    // An address family that no system has: the attempt fails before it begins.
    found.addresses.emplace_back(found.addresses.front()).storage.ss_family = AF_MAX;
    std::rotate(found.addresses.begin(), found.addresses.end() - 1, found.addresses.end());

    Start([found](const std::string&, unsigned short) { return found; },
          std::chrono::milliseconds(2000));
    ASSERT_TRUE(mCore->Connect("type.op", "backend", 1, &mRecorder));
    EXPECT_EQ(mRecorder.Next(), Status(host::kSocketConnected));
    close(mRecorder.Socket());
}

TEST_F(ConnectorCoreTest, AFailedLookupGivesItsStatus) {
    Start(
        [](const std::string& name, unsigned short) {
            return NameLookupResult{{}, host::kSocketNameNotFound, "no " + name};
        },
        kLong);
    ASSERT_TRUE(mCore->Connect("type.op", "backend", 1, &mRecorder));
    EXPECT_EQ(mRecorder.Next(), Status(host::kSocketNameNotFound));
}

TEST_F(ConnectorCoreTest, ALookupThatHangsHoldsUpNeitherTheOthersNorTheEnd) {
    std::promise<void> release;
    const std::shared_future<void> released = release.get_future().share();
    Start(
        [released](const std::string&, unsigned short) {
            released.wait();
            return NameLookupResult{};
        },
        std::chrono::milliseconds(20));
    for (int i = 0; i < 16; ++i) {
        ASSERT_TRUE(mCore->Connect("type.op", "backend", 1, &mRecorder));
    }
    EXPECT_FALSE(mCore->Connect("type.op", "backend", 1, &mRecorder));
    for (int i = 0; i < 16; ++i) {
        EXPECT_EQ(mRecorder.Next(), Status(host::kSocketTimeout));
    }
    EXPECT_FALSE(mCore->Connect("type.op", "backend", 1, &mRecorder)) << "the look-ups still hang";
    mCore->Close();
    mThread.join();
    mThread = std::thread([] {});
    release.set_value();
}

}  // namespace zem_connector
