#pragma once

#include <string>

/// State machines on one poll loop.
namespace fsm {

/// Tests of the flags that `poll(2)` reports and a state method gets as its event info.
bool IoEventReadable(int flags);
bool IoEventWritable(int flags);
bool IoEventError(int flags);
bool IoEventHangup(int flags);
bool IoEventInvalid(int flags);
bool IoEventRdhup(int flags);

/// The names of the flags that are set, each followed by a blank: "POLLIN POLLOUT ".
std::string PollFlagString(int flags);

/// Switches the descriptor to non-blocking mode; returns the result of `fcntl`, -1 on failure.
int SetNonBlocking(int fd);

}  // namespace fsm
