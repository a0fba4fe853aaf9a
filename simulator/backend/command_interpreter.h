#pragma once

#include <string>

#include "simulator/backend/server.h"

namespace simulator::backend {

/// Carries out commands, one line each: "scenario LIST", "status", "help". The answer is one line:
/// "ok", which the latter two continue with what they tell, or "error: " and the reason. One thread
/// at a time.
class CommandInterpreter {
public:
    /// @param scenarios the list that the server has begun with
    CommandInterpreter(Server& server, std::string scenarios);

    /// Empty for an empty line.
    std::string Execute(const std::string& line);

private:
    std::string Status() const;

    Server& mServer;
    std::string mScenarios;
};

}  // namespace simulator::backend
