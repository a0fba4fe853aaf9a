#include "connector_core.h"

#include <future>
#include <thread>

#include <gtest/gtest.h>
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
        file.WriteAtomically(path);
        mCore = std::make_shared<ConnectorCore>(path, nullptr, lookup);
        ASSERT_EQ(mCore->Open(), SessionStatus::kStarted);
        mThread = std::thread([core = mCore] { core->Run(); });
    }

    void TearDown() override {
        mCore->Close();
        mThread.join();
    }

    /// The status of an attempt whose look-up finds this.
    std::string ConnectWith(const NameLookupResult& found) {
        Start([found](const std::string&, unsigned short) { return found; },
              std::chrono::minutes(10));
        EXPECT_TRUE(mCore->Connect("type.op", "backend", 1, &mRecorder));
        return mRecorder.Next();
    }

    static std::string Status(host::SocketStatus status) {
        return "socket " + std::to_string(status);
    }

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
    EXPECT_EQ(ConnectWith({{refusing.Endpoint(), silent.Endpoint(), refusing.Endpoint(),
                            answering.Endpoint()},
                           {},
                           {}}),
              Status(host::kSocketConnected));
    close(mRecorder.Socket());
}

TEST_F(ConnectorCoreTest, IfAllAddressesFailTheLastOneGivesTheStatus) {
    TcpListener refusing;
    refusing.Close();
    EXPECT_EQ(ConnectWith({Endpoints(3, refusing.Endpoint()), {}, {}}),
              Status(host::kSocketRefused));
    EXPECT_EQ(mRecorder.Socket(), -1);
}

TEST_F(ConnectorCoreTest, AFailedLookupGivesItsStatus) {
    EXPECT_EQ(ConnectWith({{}, host::kSocketNameNotFound, "no backend"}),
              Status(host::kSocketNameNotFound));
}

TEST(InterleaveFamilies, TakesThemInTurn) {
    const auto lined = [](const std::vector<const char*>& texts) {
        Endpoints result;
        for (const char* text : texts) {
            result.emplace_back(boost::asio::ip::make_address(text), 1);
        }
        return result;
    };
    EXPECT_EQ(InterleaveFamilies(lined({"::1", "::2", "::3", "1.1.1.1", "2.2.2.2"})),
              lined({"::1", "1.1.1.1", "::2", "2.2.2.2", "::3"}));
    EXPECT_EQ(InterleaveFamilies(lined({"1.1.1.1", "2.2.2.2", "::1"})),
              lined({"1.1.1.1", "::1", "2.2.2.2"}));
    EXPECT_EQ(InterleaveFamilies({}), Endpoints());
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
