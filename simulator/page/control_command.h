#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace simulator::page {

/// Who executes a command.
enum class CommandTarget : std::uint8_t { kVehicle, kBackend, kService };

/// A command that the page has sent, as its receiver takes it.
struct ControlCommand {
    CommandTarget target{CommandTarget::kVehicle};
    /// A line for the simulator's control interface; "start", "reset" or "stop" for the service.
    std::string line;
};

/// A request that is no command of the list; the text explains why.
class CommandError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Reads {"control": NAME, "values": [TEXT...]}. Only what is in a fixed list passes, with as many
/// values as it needs, each without control characters and of 512 bytes at most, so that a value
/// can neither begin a command of its own nor become an option of a program. Throws CommandError.
ControlCommand ParseControlCommand(const std::string& json);

}  // namespace simulator::page
