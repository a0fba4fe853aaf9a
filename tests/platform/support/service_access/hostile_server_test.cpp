#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <list>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/websocket.hpp>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/socket.h>

#include <posix/unique_fd.h>
#include <service_access/connection.h>

#include "testing/captured_log.h"
#include "testing/event_recorder.h"
#include "testing/temporary_directory.h"
#include "vonta_socket_host/socket_path.h"

namespace service_access {

namespace beast = boost::beast;
namespace net = boost::asio;
using posix::UniqueFd;
using std::chrono::milliseconds;
using ::testing::ElementsAre;
using testing_support::EventRecorder;
using testing_support::kHangGuard;

/// Serves each connection on a thread of its own as the test says; what it leaves open stays so.
class HostileServer {
public:
    using Service = std::function<void(UniqueFd& connection)>;

    HostileServer(const std::string& path, Service service)
        : mListener(vonta_socket::host::ListenOnPath(path)),
          mService(std::move(service)),
          mThread([this] { Run(); }) {}

    ~HostileServer() {
        shutdown(mListener.Get(), SHUT_RDWR);
        mThread.join();
    }

    HostileServer(const HostileServer&) = delete;
    HostileServer& operator=(const HostileServer&) = delete;

private:
    void Run() {
        std::list<UniqueFd> connections;
        std::vector<std::thread> threads;
        while (true) {
            pollfd listener{mListener.Get(), POLLIN, 0};
            poll(&listener, 1, -1);
            UniqueFd accepted(accept4(mListener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
            if (!accepted.IsValid()) {
                break;
            }
            auto& connection = connections.emplace_back(std::move(accepted));
            threads.emplace_back([this, &connection] { mService(connection); });
        }
        for (auto& thread : threads) {
            thread.join();
        }
    }

    UniqueFd mListener;
    Service mService;
    std::thread mThread;
};

bool Say(const UniqueFd& connection, const std::string& bytes) {
    return send(connection.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) > 0;
}

bool HungUpWithin(const UniqueFd& connection, int millisec) {
    pollfd end{connection.Get(), POLLRDHUP, 0};
    return poll(&end, 1, millisec) > 0;
}

class HostileServerTest : public ::testing::Test {
protected:
    HostileServerTest() {
        mConfig.socketPath = mDirectory.File("access.sock");
        mConfig.reconnectInitial = milliseconds(2);
        mConfig.reconnectMax = milliseconds(8);
    }

    ServiceObserver Observer() {
        ServiceObserver observer;
        observer.available = [this] { mEvents.Add("available"); };
        observer.unavailable = [this] { mEvents.Add("unavailable"); };
        return observer;
    }

    const testing_support::TemporaryDirectory mDirectory;
    testing_support::CapturedLog mLog;
    EventRecorder mEvents;
    ClientConfig mConfig;
};

TEST_F(HostileServerTest, AQueryFailsOnceWhateverComesBack) {
    const std::string ok = "HTTP/1.1 200 OK\r\n";
    const std::string endless(1U << 16U, 'x');
    const auto say = [](const std::string& bytes) {
        return [bytes](UniqueFd& connection) {
            // With the request unread the end would be a reset.
            std::array<char, 4096> request{};
            recv(connection.Get(), request.data(), request.size(), 0);
            Say(connection, bytes);
            connection = UniqueFd();
        };
    };
    const std::vector<std::pair<const char*, HostileServer::Service>> cases{
        {"end of stream", say("")},
        {"bad version", say("nonsense\r\n\r\n")},
        {"partial message", say(ok + "Content-Length: 10\r\n\r\nhalf")},
        {"body limit exceeded", say(ok + "Content-Length: 1073741824\r\n\r\n")},
        {"header limit exceeded",
         [&](UniqueFd& connection) {
             Say(connection, ok);
             while (Say(connection, endless)) {
             }
         }},
        {"no answer in time", [](UniqueFd&) {}},
        {"no answer in time", [&](UniqueFd& connection) {
             for (std::size_t i = 0; !HungUpWithin(connection, 5); ++i) {
                 Say(connection, i < ok.size() ? ok.substr(i, 1) : "x");
             }
         }}};
    for (const auto& [failure, service] : cases) {
        const bool limited = std::string(failure) == "no answer in time";
        mConfig.queryTimeLimit = limited ? milliseconds(50) : milliseconds(kHangGuard);
        mConfig.connectTimeLimit = milliseconds(50);
        const HostileServer server(mConfig.socketPath, service);
        EventRecorder answers;
        Connection connection(mConfig);
        connection.Query("Immobilizer", "fields=5",
                         [&answers](const QueryResult& result) { answers.Add(result.failure); });
        EXPECT_THAT(answers.Wait(1), ElementsAre(::testing::HasSubstr(failure)));
        connection.Stop();
        EXPECT_EQ(1U, answers.Events().size());
    }
}

/// A server of the event channel that opens it and then does as `talk` says.
HostileServer::Service OpenThen(
    const std::function<void(beast::websocket::stream<net::local::stream_protocol::socket>&)>&
        talk) {
    return [talk](UniqueFd& connection) {
        net::io_context io;
        net::local::stream_protocol::socket socket(io);
        socket.assign({}, dup(connection.Get()));
        beast::websocket::stream<net::local::stream_protocol::socket> stream(std::move(socket));
        beast::error_code failure;
        stream.accept(failure);
        if (!failure) {
            talk(stream);
        }
        connection = UniqueFd();
    };
}

TEST_F(HostileServerTest, AServerThatHangsUpIsPacedAndLoggedOnce) {
    for (const bool opens : {false, true}) {
        mLog.Clear();
        const auto start = std::chrono::steady_clock::now();
        EventRecorder attempts;
        const auto hangUp = [&attempts](auto&) { attempts.Add("attempt"); };
        HostileServer::Service close = [hangUp](UniqueFd& connection) {
            hangUp(connection);
            connection = UniqueFd();
        };
        const HostileServer server(mConfig.socketPath, opens ? OpenThen(hangUp) : close);
        Connection connection(mConfig);
        connection.Start();
        attempts.Wait(6);
        connection.Stop();
        EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(2 + 4 + 8 + 8 + 8));
        EXPECT_EQ(1U, mLog.Count("no connection to "));
        EXPECT_EQ(opens ? 1U : 0U, mLog.Count("connected to "));
    }
}

TEST_F(HostileServerTest, ASilentServerIsGivenUpAndCalledAnew) {
    mConfig.connectTimeLimit = milliseconds(20);
    mConfig.pingInterval = milliseconds(20);
    std::atomic<int> attempts{0};
    const auto open = OpenThen([](auto& stream) {
        const std::string some = R"({"type":"service","name":"Some","available":true})";
        beast::error_code failure;
        stream.write(net::buffer(some), failure);
        // Reads nothing, so that no ping is answered.
        pollfd end{stream.next_layer().native_handle(), POLLRDHUP, 0};
        poll(&end, 1, -1);
    });
    const HostileServer server(mConfig.socketPath, [&](UniqueFd& connection) {
        // The first one doesn't even get an answer to its handshake.
        if (++attempts > 1) {
            open(connection);
        }
    });
    Connection connection(mConfig);
    connection.AddObserver("Some", Observer());
    connection.Start();
    const auto events = mEvents.Wait(3);
    connection.Stop();
    ASSERT_LE(3U, events.size());
    EXPECT_THAT(std::vector<std::string>(events.begin(), events.begin() + 3),
                ElementsAre("available", "unavailable", "available"));
}

TEST_F(HostileServerTest, AQuietServerIsPinged) {
    mConfig.pingInterval = milliseconds(20);
    const HostileServer server(mConfig.socketPath, OpenThen([this](auto& stream) {
                                   stream.control_callback([this](auto kind, auto) {
                                       if (kind == beast::websocket::frame_type::ping) {
                                           mEvents.Add("ping");
                                       }
                                   });
                                   beast::flat_buffer buffer;
                                   beast::error_code end;
                                   stream.read(buffer, end);
                               }));
    Connection connection(mConfig);
    connection.Start();
    EXPECT_LE(3U, mEvents.Wait(3).size());
    connection.Stop();
}

}  // namespace service_access
