#pragma once

#include <string>

#include "simulator/backend/server.h"

namespace simulator::backend {

/// Executes commands, one line each: "scenario LIST", "status", "help". The answer is one line:
/// "ok", for the latter two followed by their output, or "error: " and the reason. One thread at a
/// time.
class CommandInterpreter {
public:
    /// @param scenarios the server's initial list
    CommandInterpreter(Server& server, std::string scenarios);

    /// Executes one line and returns the answer; empty for an empty line.
    std::string Execute(const std::string& line);

private:
    std::string Status() const;

    Server& mServer;
    std::string mScenarios;
};

}  // namespace simulator::backend
