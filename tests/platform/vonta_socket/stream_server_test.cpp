#include "vonta_socket_host/stream_server.h"

#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vonta_socket/stream_protocol.h>
#include <vonta_socket/unix_stream_client_connector.h>

#include "testing/environment.h"
#include "testing/temporary_directory.h"
#include "testing/waiting.h"
#include "vonta_socket_host/socket_path.h"

namespace {

using testing_support::kHangGuard;
using vonta_socket::UnixStreamClientConnector;
using vonta_socket::host::StreamServer;

constexpr int kReadTimeoutMs = std::chrono::milliseconds(kHangGuard).count();

class StreamServerTest : public ::testing::Test {
protected:
    std::shared_ptr<vonta_socket::StreamCommunicatorIf> Connect() const {
        return UnixStreamClientConnector(mPath, kReadTimeoutMs, "test").Connect();
    }

    testing_support::TemporaryDirectory mDirectory;
    std::string mPath = mDirectory.File("alerts");
    vonta_socket::StreamProtocol mProtocol;
};

TEST_F(StreamServerTest, AnAlertReachesEverySubscriber) {
    StreamServer server(mPath);
    const auto first = Connect();
    const auto second = Connect();
    const auto silent = Connect();
    ASSERT_EQ(first->Write({1}), 1U);
    ASSERT_EQ(second->Write({1}), 1U);
    ASSERT_TRUE(server.WaitForSubscriptions(2, kHangGuard));

    EXPECT_EQ(server.BroadcastAlert("operation", 200), 2U);
    EXPECT_EQ(server.BroadcastAlert(std::string(4097, 'x'), 44), 0U);

    for (const auto& subscriber : {first, second}) {
        std::uint8_t type = 0;
        std::string operation;
        std::uint8_t code = 0;
        ASSERT_TRUE(mProtocol.ReadUint8(subscriber, type));
        ASSERT_TRUE(mProtocol.ReadString(subscriber, operation));
        ASSERT_TRUE(mProtocol.ReadUint8(subscriber, code));
        EXPECT_EQ(type, 2);
        EXPECT_EQ(operation, "operation");
        EXPECT_EQ(code, 200);
    }
}

TEST_F(StreamServerTest, ASubscriberWithAnotherRequestLosesItsConnection) {
    StreamServer server(mPath);
    std::uint8_t byte = 0;
    for (const std::uint8_t request : std::vector<std::uint8_t>{0, 2}) {
        const auto stranger = Connect();
        ASSERT_EQ(stranger->Write({request}), 1U);
        EXPECT_FALSE(mProtocol.ReadUint8(stranger, byte));
    }
    const auto subscriber = Connect();
    ASSERT_EQ(subscriber->Write({1}), 1U);
    ASSERT_TRUE(server.WaitForSubscriptions(1, kHangGuard));
    server.DropConnections();
    EXPECT_FALSE(mProtocol.ReadUint8(subscriber, byte));
    EXPECT_EQ(server.Broadcast({0}), 0U);
}

TEST_F(StreamServerTest, TheSocketIsPrivateAndReplacesOnlyAStaleOne) {
    {
        // What is left of a server that had no time to clean up.
        const auto stale = vonta_socket::host::ListenOnPath(mPath);
    }
    {
        const StreamServer server(mPath);
        EXPECT_EQ(std::filesystem::status(mPath).permissions(), std::filesystem::perms(0600));
        EXPECT_THROW(StreamServer{mPath}, std::runtime_error);
        EXPECT_NE(Connect(), nullptr);
    }
    EXPECT_FALSE(std::filesystem::exists(mPath));
    mDirectory.Write("alerts", "content");
    EXPECT_THROW(StreamServer{mPath}, std::runtime_error);
    EXPECT_TRUE(std::filesystem::is_regular_file(mPath));
}

TEST_F(StreamServerTest, ConnectionsAboveTheLimitAreTurnedAway) {
    StreamServer server(mPath);
    std::vector<std::shared_ptr<vonta_socket::StreamCommunicatorIf>> subscribers;
    for (std::size_t i = 0; i < StreamServer::kMaxConnections; ++i) {
        subscribers.push_back(Connect());
        ASSERT_EQ(subscribers.back()->Write({1}), 1U);
    }
    ASSERT_TRUE(server.WaitForSubscriptions(StreamServer::kMaxConnections, kHangGuard));
    std::uint8_t byte = 0;
    EXPECT_FALSE(mProtocol.ReadUint8(Connect(), byte));
    EXPECT_EQ(server.GetSubscriberCount(), StreamServer::kMaxConnections);
}

TEST_F(StreamServerTest, ADirectoryFromTheEnvironmentHoldsTheSocketsOfBothSides) {
    const testing_support::EnvironmentVariable variable("VONTA_SOCKET_DIR", mDirectory.Path());
    StreamServer server("/somewhere/on/the/unit/alerts");
    const auto subscriber =
        UnixStreamClientConnector("/somewhere/on/the/unit/alerts", kReadTimeoutMs, "").Connect();
    ASSERT_NE(subscriber, nullptr);
    EXPECT_TRUE(std::filesystem::is_socket(mPath));
}

}  // namespace
