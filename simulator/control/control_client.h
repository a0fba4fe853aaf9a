#pragma once

#include <chrono>
#include <string>

namespace simulator {

/// Sends a simulator a command over its control socket and waits for the answer, both one line.
/// Blocks for `limit` at most; any thread may call it. Throws std::runtime_error with a text for
/// the user if the simulator is unavailable, does not answer in time or answers with more than 64
/// KiB.
/// @param line without a line end in it
std::string AskControlServer(const std::string& path, const std::string& line,
                             std::chrono::milliseconds limit);

}  // namespace simulator
