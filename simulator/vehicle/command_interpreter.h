#pragma once

#include <functional>
#include <mutex>
#include <string>

#include "simulator/vehicle/vehicle.h"

namespace simulator::vehicle {

/// Executes commands, one line each:
///
///     clamp on|off                   connector session idle|starting|started|rejected
///     alert OID CODE                 connector activation on|off
///     immobilizer up|down            connector connection
///     immobilizer vin [TEXT]                 notAvailable|disconnected|onDemand|connected
///     ecu sw|hw|part [TEXT]          connector url URL
///     ecu up|down                    status, help, quit
///
/// TEXT extends to the end of the line. The answer is one line: "ok", for "status" and "help"
/// followed by their output, or "error: " and the reason. Any thread.
class CommandInterpreter {
public:
    /// `quit` is called by the command "quit".
    CommandInterpreter(Vehicle& vehicle, std::function<void()> quit);

    /// Executes one line and returns the answer; empty for an empty line.
    std::string Execute(const std::string& line);

private:
    class UsageError;
    class Words;

    std::string Execute(Words words);
    void Clamp(Words& words);
    void Alert(Words& words);
    void Immobilizer(Words& words);
    void Connector(Words& words);
    void Ecu(Words& words);

    std::mutex mMutex;
    Vehicle& mVehicle;
    std::function<void()> mQuit;
};

}  // namespace simulator::vehicle
