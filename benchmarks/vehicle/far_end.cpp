#include "benchmarks/vehicle/far_end.h"

#include <array>
#include <atomic>
#include <csignal>
#include <mutex>
#include <new>
#include <thread>
#include <utility>

#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/websocket.hpp>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <posix/unique_fd.h>

#include "benchmarks/framework/harness.h"
#include "vonta_socket_host/socket_path.h"

namespace vehicle_bench {

namespace {

namespace net = boost::asio;
namespace beast = boost::beast;
using framework_bench::CheckCall;
using posix::UniqueFd;
using UnixProtocol = net::local::stream_protocol;
using Timestamp = std::atomic<std::int64_t>;

constexpr std::size_t kMapSize = 4096;
constexpr char kTextFrame = '\x81';

void Send(int socket, const std::string& bytes) {
    CheckCall(send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL), "send");
}

/// A short text as a frame of a WebSocket server (RFC 6455, section 5.2).
void SendFrame(int socket, const nlohmann::json& message) {
    const std::string text = message.dump();
    Send(socket, std::string{kTextFrame, static_cast<char>(text.size())} + text);
}

UniqueFd Accept(const UniqueFd& listener) {
    pollfd ready{listener.Get(), POLLIN, 0};
    CheckCall(poll(&ready, 1, -1), "poll");
    const int accepted = accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC);
    CheckCall(accepted, "accept4");
    return UniqueFd(accepted);
}

nlohmann::json Service(const char* name, bool available) {
    return {{"type", "service"}, {"name", name}, {"available", available}};
}

/// An alert with code 44.
std::string Alert() {
    return {"\x02\0\0\0\x09operation\x2C", 15};
}

nlohmann::json Clamp(bool on) {
    return {
        {"type", "element"}, {"service", "ClampControl"}, {"element", "Clamp15"}, {"value", on}};
}

/// The life of the far end in its process.
class Vehicle {
public:
    Vehicle(const std::string& directory, int bareSocket, Timestamp& writtenAt)
        : mAccess(vonta_socket::host::ListenOnPath(directory + "/access.sock")),
          mAlerts(vonta_socket::host::ListenOnPath(directory + "/sockstlsalertifsocket")),
          mBareSocket(bareSocket),
          mWrittenAt(writtenAt) {}

    /// Serves the clients and obeys until the commands end.
    [[noreturn]] void Run(int commands) {
        std::thread([this] { ServeAccess(); }).detach();
        std::thread([this] { ServeAlerts(); }).detach();
        char command = 0;
        while (read(commands, &command, 1) == 1) {
            Obey(static_cast<Message>(command));
        }
        _exit(0);
    }

private:
    void ServeAccess() {
        while (true) {
            std::thread([this, fd = Accept(mAccess)] { ServeEvents(fd); }).detach();
        }
    }

    void ServeEvents(const UniqueFd& fd) {
        net::io_context io;
        UnixProtocol::socket socket(io);
        socket.assign(UnixProtocol(), dup(fd.Get()));
        beast::websocket::stream<UnixProtocol::socket> stream(std::move(socket));
        beast::error_code end;
        stream.accept(end);
        if (end) {
            return;
        }
        mImmobilizerGone = false;
        SendFrame(fd.Get(), Service("ClampControl", true));
        SendFrame(fd.Get(), Service("Immobilizer", true));
        mImmobilizerClient = fd.Get();
        while (true) {
            beast::flat_buffer buffer;
            stream.read(buffer, end);
            if (end) {
                return;
            }
            const auto message = nlohmann::json::parse(beast::buffers_to_string(buffer.data()));
            if (message.at("type") == "subscribe") {
                mClampClient = fd.Get();
                SendFrame(fd.Get(), {{"type", "subscribed"},
                                     {"request", message.at("request")},
                                     {"subscription", "clamp"}});
                SendFrame(fd.Get(), Clamp(mOn));
            }
        }
    }

    void ServeAlerts() {
        while (true) {
            UniqueFd client = Accept(mAlerts);
            char request = 0;
            if (read(client.Get(), &request, 1) == 1) {
                Send(client.Get(), Alert());
                mAlertClient = client.Get();
                mAlertConnection = std::move(client);
            }
        }
    }

    void Obey(Message message) {
        mOn = !mOn;
        const nlohmann::json clamp = Clamp(mOn);
        const nlohmann::json immobilizer = Service("Immobilizer", mImmobilizerGone);
        mWrittenAt = NowNanosec();
        switch (message) {
            case Message::kClamp:
                SendFrame(mClampClient, clamp);
                break;
            case Message::kImmobilizer:
                SendFrame(mImmobilizerClient, immobilizer);
                mImmobilizerGone = !mImmobilizerGone;
                break;
            case Message::kAlert:
                Send(mAlertClient, Alert());
                break;
            case Message::kBare:
                Send(mBareSocket, "x");
                break;
        }
    }

    UniqueFd mAccess;
    UniqueFd mAlerts;
    UniqueFd mAlertConnection;
    int mBareSocket;
    Timestamp& mWrittenAt;
    std::atomic<int> mClampClient{-1};
    std::atomic<int> mImmobilizerClient{-1};
    std::atomic<int> mAlertClient{-1};
    std::atomic<bool> mOn{false};
    std::atomic<bool> mImmobilizerGone{false};
};

}  // namespace

std::int64_t NowNanosec() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec * std::int64_t{1'000'000'000} + time.tv_nsec;
}

FarEnd::FarEnd(const std::string& directory) {
    std::array<int, 2> commands{};
    std::array<int, 2> bare{};
    CheckCall(pipe(commands.data()), "pipe");
    CheckCall(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, bare.data()), "socketpair");
    mShared = mmap(nullptr, kMapSize, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    framework_bench::Check(mShared != MAP_FAILED, "mmap");
    auto& writtenAt = *new (mShared) Timestamp(0);
    // The sockets are there when the first client comes.
    Vehicle vehicle(directory, bare[1], writtenAt);
    mProcess = fork();
    CheckCall(mProcess, "fork");
    if (mProcess == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        close(commands[1]);
        vehicle.Run(commands[0]);
    }
    close(commands[0]);
    close(bare[1]);
    mCommands = commands[1];
    mBareSocket = bare[0];
}

FarEnd::~FarEnd() {
    close(mCommands);
    waitpid(mProcess, nullptr, 0);
    close(mBareSocket);
    munmap(mShared, kMapSize);
}

void FarEnd::Write(Message message) const {
    const auto command = static_cast<char>(message);
    CheckCall(write(mCommands, &command, 1), "write");
}

std::int64_t FarEnd::WrittenAt() const {
    return *static_cast<const Timestamp*>(mShared);
}

}  // namespace vehicle_bench
