#include "simulator/backend/command_interpreter.h"

#include <exception>
#include <utility>

#include <nlohmann/json.hpp>

#include "simulator/backend/scenario.h"

namespace simulator::backend {

CommandInterpreter::CommandInterpreter(Server& server, std::string scenarios)
    : mServer(server), mScenarios(std::move(scenarios)) {}

std::string CommandInterpreter::Execute(const std::string& line) {
    const std::size_t space = line.find(' ');
    const std::string command = line.substr(0, space);
    const std::string rest = space == std::string::npos ? "" : line.substr(space + 1);
    if (line.empty()) {
        return {};
    }
    if (command == "scenario") {
        try {
            mServer.SetScenarios(ScenarioSequence(ParseScenarios(rest)));
        } catch (const std::exception& error) {
            return std::string("error: ") + error.what();
        }
        mScenarios = rest;
        return "ok";
    }
    if (line == "status") {
        return "ok " + Status();
    }
    if (line == "help") {
        return "ok scenario LIST of " + ScenarioHelp() + "; status; help";
    }
    return "error: unknown command '" + line + "'";
}

std::string CommandInterpreter::Status() const {
    const nlohmann::json status{{"scenario", mScenarios.empty() ? "ok" : mScenarios},
                                {"known", KnownScenarios()}};
    return status.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace simulator::backend
