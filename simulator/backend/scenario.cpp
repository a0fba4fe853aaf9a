#include "simulator/backend/scenario.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace simulator::backend {

namespace {

struct KnownScenario {
    const char* name;
    ScenarioKind kind;
    /// Null if the scenario has no parameter.
    const char* parameter;
    int min;
    int max;
};

constexpr int kMaxDays = 36500;
constexpr int kMinStatus = 200;
constexpr int kMaxStatus = 599;

constexpr std::array<KnownScenario, 16> kKnown{{
    {"ok", ScenarioKind::kOk, nullptr, 0, 0},
    {"expires", ScenarioKind::kExpires, "DAYS", 0, kMaxDays},
    {"refuse", ScenarioKind::kRefuse, "STATUS", kMinStatus, kMaxStatus},
    {"close-early", ScenarioKind::kCloseEarly, nullptr, 0, 0},
    {"close-after-interim", ScenarioKind::kCloseAfterInterim, nullptr, 0, 0},
    {"silent", ScenarioKind::kSilent, nullptr, 0, 0},
    {"pieces", ScenarioKind::kPieces, nullptr, 0, 0},
    {"no-interim", ScenarioKind::kNoInterim, nullptr, 0, 0},
    {"wrong-media-type", ScenarioKind::kWrongMediaType, nullptr, 0, 0},
    {"wrong-name", ScenarioKind::kWrongName, nullptr, 0, 0},
    {"other-key", ScenarioKind::kOtherKey, nullptr, 0, 0},
    {"expired", ScenarioKind::kExpired, nullptr, 0, 0},
    {"untrusted-root", ScenarioKind::kUntrustedRoot, nullptr, 0, 0},
    {"garbage", ScenarioKind::kGarbage, nullptr, 0, 0},
    {"empty", ScenarioKind::kEmpty, nullptr, 0, 0},
    {"broken-status", ScenarioKind::kBrokenStatus, nullptr, 0, 0},
}};

int ParseParameter(const KnownScenario& known, const std::string& text) {
    int value = 0;
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    if (result.ec != std::errc() || result.ptr != end || value < known.min || value > known.max) {
        throw std::invalid_argument(std::string("the scenario '") + known.name + "' needs " +
                                    known.parameter + " from " + std::to_string(known.min) +
                                    " to " + std::to_string(known.max));
    }
    return value;
}

Scenario ParseScenario(const std::string& text) {
    const auto colon = text.find(':');
    const std::string name = text.substr(0, colon);
    const auto known = std::find_if(kKnown.begin(), kKnown.end(),
                                    [&name](const auto& entry) { return name == entry.name; });
    const bool hasParameter = colon != std::string::npos;
    if (known == kKnown.end() || (hasParameter && known->parameter == nullptr)) {
        throw std::invalid_argument("unknown scenario '" + text + "'");
    }
    Scenario scenario{known->kind, 0, text};
    if (known->parameter != nullptr) {
        scenario.parameter = ParseParameter(*known, hasParameter ? text.substr(colon + 1) : "");
    }
    return scenario;
}

}  // namespace

std::vector<std::string> KnownScenarios() {
    std::vector<std::string> names;
    for (const KnownScenario& known : kKnown) {
        const std::string parameter =
            known.parameter == nullptr ? std::string() : std::string(":") + known.parameter;
        names.push_back(known.name + parameter);
    }
    return names;
}

std::string ScenarioHelp() {
    std::string help;
    for (const std::string& name : KnownScenarios()) {
        help += (help.empty() ? "" : ", ") + name;
    }
    return help;
}

std::vector<Scenario> ParseScenarios(const std::string& list) {
    std::vector<Scenario> scenarios;
    std::istringstream stream(list);
    for (std::string text; std::getline(stream, text, ',');) {
        scenarios.push_back(ParseScenario(text));
    }
    return scenarios;
}

ScenarioSequence::ScenarioSequence(std::vector<Scenario> scenarios)
    : mScenarios(std::move(scenarios)) {
    if (mScenarios.empty()) {
        mScenarios.emplace_back();
    }
}

const Scenario& ScenarioSequence::Next() {
    const Scenario& scenario = mScenarios.at(mNext);
    mNext = std::min(mNext + 1, mScenarios.size() - 1);
    return scenario;
}

}  // namespace simulator::backend
