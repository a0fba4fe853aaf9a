#include "simulator/control/control_client.h"

#include <array>
#include <cerrno>
#include <stdexcept>
#include <system_error>

#include <poll.h>
#include <sys/socket.h>

#include <posix/unique_fd.h>

#include "vonta_socket_host/socket_path.h"

namespace simulator {

namespace {

using Clock = std::chrono::steady_clock;
using posix::UniqueFd;

constexpr std::size_t kMaxAnswer = std::size_t{64} * 1024;

[[noreturn]] void Fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

UniqueFd Connect(const std::string& path) {
    sockaddr_un address{};
    if (!vonta_socket::host::MakeUnixAddress(path, address)) {
        throw std::runtime_error("the path of the control socket is too long: " + path);
    }
    UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    // A local connection is made at once or not at all.
    if (!socket.IsValid() || ::connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address),
                                       sizeof(address)) != 0) {
        Fail("the simulator is not there");
    }
    return socket;
}

void WaitFor(int socket, Clock::time_point end) {
    while (true) {
        const auto rest =
            std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
        pollfd descriptor{socket, POLLIN, 0};
        const int ready = rest < 0 ? 0 : ::poll(&descriptor, 1, static_cast<int>(rest) + 1);
        if (ready > 0) {
            return;
        }
        if (ready == 0) {
            throw std::runtime_error("the simulator does not answer");
        }
        if (errno != EINTR) {
            Fail("the simulator's answer");
        }
    }
}

}  // namespace

std::string AskControlServer(const std::string& path, const std::string& line,
                             std::chrono::milliseconds limit) {
    const auto end = Clock::now() + limit;
    const UniqueFd socket = Connect(path);
    const std::string command = line + "\n";
    // An empty socket takes a whole command.
    if (::send(socket.Get(), command.data(), command.size(), MSG_NOSIGNAL) !=
        static_cast<ssize_t>(command.size())) {
        Fail("the simulator takes no command");
    }
    std::string answer;
    std::array<char, 4096> buffer{};
    while (answer.size() <= kMaxAnswer) {
        WaitFor(socket.Get(), end);
        const ssize_t count = ::recv(socket.Get(), buffer.data(), buffer.size(), 0);
        if (count < 0 && (errno == EINTR || errno == EAGAIN)) {
            continue;
        }
        if (count <= 0) {
            throw std::runtime_error("the simulator has hung up");
        }
        answer.append(buffer.data(), static_cast<std::size_t>(count));
        const std::size_t lineEnd = answer.find('\n');
        if (lineEnd != std::string::npos) {
            return answer.substr(0, lineEnd);
        }
    }
    throw std::runtime_error("the simulator's answer is too long");
}

}  // namespace simulator
