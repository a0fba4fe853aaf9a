#include "fsm/io_event.h"

#include <array>
#include <utility>

#include <fcntl.h>
#include <poll.h>

namespace fsm {

bool IoEventReadable(int flags) {
    return (flags & POLLIN) != 0;
}

bool IoEventWritable(int flags) {
    return (flags & POLLOUT) != 0;
}

bool IoEventError(int flags) {
    return (flags & POLLERR) != 0;
}

bool IoEventHangup(int flags) {
    return (flags & POLLHUP) != 0;
}

bool IoEventInvalid(int flags) {
    return (flags & POLLNVAL) != 0;
}

bool IoEventRdhup(int flags) {
    return (flags & POLLRDHUP) != 0;
}

std::string PollFlagString(int flags) {
    static constexpr std::array<std::pair<int, const char*>, 6> kNames{{{POLLIN, "POLLIN "},
                                                                        {POLLOUT, "POLLOUT "},
                                                                        {POLLHUP, "POLLHUP "},
                                                                        {POLLERR, "POLLERR "},
                                                                        {POLLNVAL, "POLLNVAL "},
                                                                        {POLLRDHUP, "POLLRDHUP "}}};
    std::string text;
    for (const auto& [flag, name] : kNames) {
        if ((flags & flag) != 0) {
            text += name;
        }
    }
    return text;
}

int SetNonBlocking(int fd) {
    return fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
}

}  // namespace fsm
