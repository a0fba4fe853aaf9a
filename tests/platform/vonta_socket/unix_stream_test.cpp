#include <chrono>
#include <cstdint>
#include <filesystem>
#include <future>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <posix/unique_fd.h>
#include <vonta_socket/stream_protocol.h>
#include <vonta_socket/unix_stream_client_connector.h>

#include "testing/temporary_directory.h"
#include "vonta_socket_host/socket_path.h"

namespace {

using posix::UniqueFd;
using vonta_socket::UnixStreamClientConnector;

constexpr int kNoTimeout = -1;

class UnixStreamTest : public ::testing::Test {
protected:
    void SetUp() override {
        mConnection = UnixStreamClientConnector(mPath, kNoTimeout, "test").Connect();
        ASSERT_NE(mConnection, nullptr);
        mPeer = Accept();
    }

    UniqueFd Accept() const {
        return UniqueFd(::accept4(mListener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    }

    void PeerSends(const std::vector<std::uint8_t>& data) const {
        ASSERT_EQ(::send(mPeer.Get(), data.data(), data.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(data.size()));
    }

    testing_support::TemporaryDirectory mDirectory;
    std::string mPath = mDirectory.File("socket");
    UniqueFd mListener = vonta_socket::host::ListenOnPath(mPath);
    std::shared_ptr<vonta_socket::StreamCommunicatorIf> mConnection;
    UniqueFd mPeer;
    vonta_socket::StreamProtocol mProtocol;
};

TEST_F(UnixStreamTest, StringsTravelWithABigEndianLength) {
    std::vector<std::uint8_t> data;
    mProtocol.InsertUint8(data, 0xFE);
    ASSERT_TRUE(mProtocol.InsertString(data, "ab"));
    ASSERT_TRUE(mProtocol.InsertString(data, std::string(258, 'c')));
    EXPECT_EQ(std::vector<std::uint8_t>(data.begin(), data.begin() + 11),
              (std::vector<std::uint8_t>{0xFE, 0, 0, 0, 2, 'a', 'b', 0, 0, 1, 2}));
    PeerSends(data);

    std::uint8_t byte = 0;
    std::string shortText;
    std::string longText;
    ASSERT_TRUE(mProtocol.ReadUint8(mConnection, byte));
    ASSERT_TRUE(mProtocol.ReadString(mConnection, shortText));
    ASSERT_TRUE(mProtocol.ReadString(mConnection, longText));
    EXPECT_EQ(byte, 0xFE);
    EXPECT_EQ(shortText, "ab");
    EXPECT_EQ(longText, std::string(258, 'c'));
}

TEST_F(UnixStreamTest, StringsHaveAnUpperLimitInBothDirections) {
    std::vector<std::uint8_t> data;
    EXPECT_FALSE(mProtocol.InsertString(data, std::string(4097, 'x')));
    EXPECT_TRUE(data.empty());
    ASSERT_TRUE(mProtocol.InsertString(data, std::string(4096, 'x')));
    PeerSends(data);
    std::string text;
    EXPECT_TRUE(mProtocol.ReadString(mConnection, text));
    EXPECT_EQ(text.size(), 4096U);

    PeerSends({0xFF, 0xFF, 0xFF, 0xFF, 'x'});
    EXPECT_FALSE(mProtocol.ReadString(mConnection, text));
}

TEST_F(UnixStreamTest, ATruncatedStringIsAFailure) {
    PeerSends({0, 0, 0, 3, 'a', 'b'});
    mPeer = UniqueFd();
    std::string text = "before";
    EXPECT_FALSE(mProtocol.ReadString(mConnection, text));
    EXPECT_EQ(text, "before");
}

TEST_F(UnixStreamTest, CloseOnAnotherThreadEndsABlockedRead) {
    auto result = std::async(std::launch::async, [this] {
        std::uint8_t byte = 0;
        return mProtocol.ReadUint8(mConnection, byte);
    });
    mConnection->Close();
    EXPECT_FALSE(result.get());
    EXPECT_EQ(mConnection->Write({1}), 0U);
}

TEST_F(UnixStreamTest, AReadTimeoutEndsARead) {
    const auto connection = UnixStreamClientConnector(mPath, 1, "test").Connect();
    ASSERT_NE(connection, nullptr);
    std::uint8_t byte = 0;
    EXPECT_FALSE(mProtocol.ReadUint8(connection, byte));
}

TEST_F(UnixStreamTest, NoDescriptorIsHandedOnToOtherPrograms) {
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        const auto target = std::filesystem::read_symlink(entry.path(), error).string();
        const int fd = std::stoi(entry.path().filename());
        if (fd > STDERR_FILENO && target.rfind("socket:", 0) == 0) {
            EXPECT_NE(::fcntl(fd, F_GETFD) & FD_CLOEXEC, 0) << target;
        }
    }
}

TEST_F(UnixStreamTest, ConnectFailsWithoutAServer) {
    const auto connect = [](const std::string& path) {
        return UnixStreamClientConnector(path, kNoTimeout, "test").Connect();
    };
    EXPECT_EQ(connect(mDirectory.File("absent")), nullptr);
    EXPECT_EQ(connect(std::string(200, 'x')), nullptr);
    EXPECT_EQ(connect(""), nullptr);
    mListener = UniqueFd();
    EXPECT_EQ(connect(mPath), nullptr);
}

TEST_F(UnixStreamTest, AServerThatDropsEveryConnectionIsNotHammered) {
    UnixStreamClientConnector connector(mPath, kNoTimeout, "test");
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 4; ++i) {
        ASSERT_NE(connector.Connect(), nullptr);
        Accept();
    }
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300));
}

}  // namespace
