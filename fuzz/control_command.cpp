// A command that a browser sends to the page's server.

#include "simulator/page/control_command.h"

#include <string>

#include "fuzz/check.h"

using fuzz::Check;
using simulator::page::CommandTarget;

void fuzz::TryInput(std::string_view input) {
    simulator::page::ControlCommand command;
    try {
        command = simulator::page::ParseControlCommand(std::string(input));
    } catch (const simulator::page::CommandError& error) {
        Check(*error.what() != '\0', "a refusal has a reason");
        return;
    }
    for (const char character : command.line) {
        Check(static_cast<unsigned char>(character) >= ' ' && character != '\x7f',
              "a command is one line");
    }
    const std::string word = command.line.substr(0, command.line.find(' '));
    switch (command.target) {
        case CommandTarget::kVehicle:
            Check(word == "clamp" || word == "alert" || word == "immobilizer" ||
                      word == "connector" || word == "ecu",
                  "the vehicle gets a command of the list");
            break;
        case CommandTarget::kBackend:
            Check(word == "scenario", "the backend gets a command of the list");
            break;
        case CommandTarget::kService:
            Check(command.line == "start" || command.line == "stop" || command.line == "reset",
                  "the service gets one of three words");
            break;
    }
}
