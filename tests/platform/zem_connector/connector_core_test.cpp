#include "connector_core.h"

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

    static std::string Status(host::SocketStatus status) {
        return "socket " + std::to_string(status);
    }

    static constexpr std::chrono::milliseconds kLong{600000};

    testing_support::TemporaryDirectory mDirectory;
    CallbackRecorder mRecorder;
    std::shared_ptr<ConnectorCore> mCore;
    std::thread mThread;
};

TEST_F(ConnectorCoreTest, AnAddressThatFailsOrKeepsSilentDoesNotHoldUpTheNext) {
    TcpListener refusing;
    refusing.Close();
    TcpListener silent(0);
    silent.StopAnswering();
    TcpListener answering;
    const Endpoints found = {refusing.Endpoint(), silent.Endpoint(), refusing.Endpoint(),
                             answering.Endpoint()};

    Start(
        [found](const std::string&, unsigned short) {
            return NameLookupResult{found, {}, {}};
        },
        kLong);
    ASSERT_TRUE(mCore->Connect("type.op", "backend", 1, &mRecorder));
    EXPECT_EQ(mRecorder.Next(), Status(host::kSocketConnected));
    close(mRecorder.Socket());
}

TEST_F(ConnectorCoreTest, IfAllAddressesFailTheLastOneGivesTheStatus) {
    TcpListener refusing;
    refusing.Close();
    const Endpoints found(3, refusing.Endpoint());
    Start(
        [found](const std::string&, unsigned short) {
            return NameLookupResult{found, {}, {}};
        },
        kLong);
    ASSERT_TRUE(mCore->Connect("type.op", "backend", 1, &mRecorder));
    EXPECT_EQ(mRecorder.Next(), Status(host::kSocketRefused));
}

TEST(InterleaveFamilies, TakesThemInTurn) {
    using boost::asio::ip::make_address;
    const auto lined = [](const std::vector<const char*>& texts) {
        Endpoints result;
        for (const char* text : texts) {
            result.emplace_back(make_address(text), 1);
        }
        return result;
    };
    EXPECT_EQ(InterleaveFamilies(lined({"::1", "::2", "::3", "1.1.1.1", "2.2.2.2"})),
              lined({"::1", "1.1.1.1", "::2", "2.2.2.2", "::3"}));
    EXPECT_EQ(InterleaveFamilies(lined({"1.1.1.1", "2.2.2.2", "::1"})),
              lined({"1.1.1.1", "::1", "2.2.2.2"}));
    EXPECT_EQ(InterleaveFamilies({}), Endpoints());
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
