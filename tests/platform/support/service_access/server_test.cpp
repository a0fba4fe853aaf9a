#include <cerrno>
#include <string>
#include <system_error>

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <service_access/server.h>

#include "testing/stream.h"
#include "testing/temporary_directory.h"
#include "vonta_socket_host/socket_path.h"

namespace service_access {

namespace {

bool gEpollFails = false;

}  // namespace

using ::testing::HasSubstr;
using ::testing::StartsWith;

class ServerTest : public ::testing::Test {
protected:
    /// Sends `request` and returns all that comes back until the server hangs up.
    std::string Exchange(const std::string& request) const {
        return testing_support::Stream::ToPath(mPath).Send(request).ReadToEnd();
    }

    std::string Get(const std::string& target) const {
        return Exchange("GET " + target + " HTTP/1.1\r\nHost: x\r\n\r\n");
    }

    const testing_support::TemporaryDirectory mDirectory;
    const std::string mPath = mDirectory.File("server.sock");
    Server mServer{mPath};
};

TEST_F(ServerTest, OnlyTheOwnerMayUseTheSocketAndItGoesWithTheServer) {
    mServer.Start();
    struct stat info {};
    ASSERT_EQ(0, stat(mPath.c_str(), &info));
    EXPECT_EQ(static_cast<mode_t>(S_IFSOCK | 0600), info.st_mode);
    mServer.Stop();
    EXPECT_NE(0, stat(mPath.c_str(), &info));
}

TEST_F(ServerTest, ALiveServerOrAForeignFileIsNotReplaced) {
    mServer.Start();
    EXPECT_THROW(Server(mPath).Start(), std::system_error);
    EXPECT_THAT(Get("/nothing"), StartsWith("HTTP/1.1 404"));

    const auto filePath = mDirectory.Write("file", "precious");
    EXPECT_THROW(Server(filePath).Start(), std::system_error);
    EXPECT_EQ(0, access(filePath.c_str(), F_OK));
    EXPECT_THROW(Server("/" + std::string(200, 'x')).Start(), std::system_error);
}

TEST_F(ServerTest, AStaleSocketFileIsReplaced) {
    { const auto left = vonta_socket::host::ListenOnPath(mPath); }
    EXPECT_NO_THROW(mServer.Start());
    EXPECT_THAT(Get("/nothing"), StartsWith("HTTP/1.1 404"));
}

TEST_F(ServerTest, AQueryIsAnsweredByTheStateOfTheService) {
    mServer.SetImmobilizerVin("VIN-1");
    mServer.Start();
    EXPECT_THAT(Get("/services/Immobilizer/info?fields=5"), StartsWith("HTTP/1.1 503"));
    EXPECT_THAT(Get("/services/Other/info?fields=5"), StartsWith("HTTP/1.1 404"));

    mServer.SetServiceAvailable("Immobilizer", true);
    EXPECT_THAT(
        Get("/services/Immobilizer/info?fields=0,5&options=0"),
        HasSubstr(R"({"items":[{"id":"Immobilizer","vehicleIdentificationNumber":"VIN-1"}]})"));
    EXPECT_THAT(Get("/services/Immobilizer/info?fields=0"), HasSubstr(R"([{"id":"Immobilizer"}])"));
    mServer.SetImmobilizerVin(std::nullopt);
    EXPECT_THAT(Get("/services/Immobilizer/info?fields=5"), HasSubstr(R"({"items":[{}]})"));
    mServer.SetImmobilizerStatus(418);
    EXPECT_THAT(Get("/services/Immobilizer/info?fields=5"), StartsWith("HTTP/1.1 418"));
    EXPECT_THROW(mServer.SetImmobilizerStatus(0), std::invalid_argument);
}

TEST_F(ServerTest, HostileRequestsAreRefusedAndTheServerLives) {
    mServer.SetServiceAvailable("Immobilizer", true);
    mServer.Start();
    for (const auto* query : {"", "?fields=", "?fields=5,", "?fields=x", "?fields=-1",
                              "?fields=99999999999", "?fields=5;6"}) {
        EXPECT_THAT(Get(std::string("/services/Immobilizer/info") + query),
                    StartsWith("HTTP/1.1 400"))
            << query;
    }
    std::string many = "/services/Immobilizer/info?fields=0";
    for (int field = 1; field < 100; ++field) {
        many += "," + std::to_string(field);
    }
    EXPECT_THAT(Get(many), StartsWith("HTTP/1.1 400"));
    EXPECT_THAT(Get("/services//info"), StartsWith("HTTP/1.1 404"));
    EXPECT_THAT(Get("/services/info"), StartsWith("HTTP/1.1 404"));
    EXPECT_THAT(Exchange("DELETE /services/Immobilizer/info HTTP/1.1\r\n\r\n"),
                StartsWith("HTTP/1.1 405"));
    EXPECT_EQ("", Exchange(std::string(100000, 'x')));
    EXPECT_EQ("", Exchange("GET / HTTP/1.1\r\nX: " + std::string(100000, 'x') + "\r\n\r\n"));
    EXPECT_EQ("", Exchange("PUT / HTTP/1.1\r\nContent-Length: 999999999\r\n\r\n"));
    EXPECT_THAT(Get("/services/Immobilizer/info?fields=5"), StartsWith("HTTP/1.1 200"));
}

TEST_F(ServerTest, AStartThatFailsForWantOfDescriptorsLeavesNothingBehind) {
    // The listening socket is there by then.
    gEpollFails = true;
    EXPECT_THROW(mServer.Start(), std::system_error);
    gEpollFails = false;
    EXPECT_NE(0, access(mPath.c_str(), F_OK));
    mServer.Start();
    EXPECT_EQ(0, access(mPath.c_str(), F_OK));
}

}  // namespace service_access

/// Stands before the C library's: a process that has run out of descriptors.
extern "C" int epoll_create1(int flags) noexcept {
    if (service_access::gEpollFails) {
        errno = EMFILE;
        return -1;
    }
    return static_cast<int>(syscall(SYS_epoll_create1, flags));
}
