#include "simulator/page/control_command.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

namespace simulator::page {

namespace {

constexpr std::size_t kMaxValueSize = 512;

// What may stand for a value: one of "a|b|c", or any of these.
constexpr std::string_view kWord = "WORD";
constexpr std::string_view kText = "TEXT";
constexpr std::string_view kByte = "BYTE";

struct Control {
    std::string_view name;
    CommandTarget target;
    std::string_view line;
    std::array<std::string_view, 2> values;
};

constexpr std::array<Control, 14> kControls{{
    {"clamp", CommandTarget::kVehicle, "clamp", {"on|off"}},
    {"alert", CommandTarget::kVehicle, "alert", {kWord, kByte}},
    {"immobilizer", CommandTarget::kVehicle, "immobilizer", {"up|down"}},
    {"vin", CommandTarget::kVehicle, "immobilizer vin", {kText}},
    {"session", CommandTarget::kVehicle, "connector session", {"idle|starting|started|rejected"}},
    {"activation", CommandTarget::kVehicle, "connector activation", {"on|off"}},
    {"connection",
     CommandTarget::kVehicle,
     "connector connection",
     {"notAvailable|disconnected|onDemand|connected"}},
    {"url", CommandTarget::kVehicle, "connector url", {kWord}},
    {"ecu", CommandTarget::kVehicle, "ecu", {"up|down"}},
    {"ecuSw", CommandTarget::kVehicle, "ecu sw", {kText}},
    {"ecuHw", CommandTarget::kVehicle, "ecu hw", {kText}},
    {"ecuPart", CommandTarget::kVehicle, "ecu part", {kText}},
    {"scenario", CommandTarget::kBackend, "scenario", {kWord}},
    {"service", CommandTarget::kService, "", {"start|reset|stop"}},
}};

bool IsControlCharacter(char character) {
    return static_cast<unsigned char>(character) < ' ' || character == '\x7f';
}

bool IsByte(const std::string& value) {
    std::uint8_t number = 0;
    const char* const end = value.data() + value.size();
    const auto result = std::from_chars(value.data(), end, number);
    return result.ec == std::errc() && result.ptr == end;
}

bool IsChoice(const std::string& value, std::string_view choices) {
    while (!choices.empty()) {
        const std::size_t bar = choices.find('|');
        if (choices.substr(0, bar) == value) {
            return true;
        }
        choices.remove_prefix(bar == std::string_view::npos ? choices.size() : bar + 1);
    }
    return false;
}

bool Fits(const std::string& value, std::string_view expected) {
    if (value.size() > kMaxValueSize ||
        std::any_of(value.begin(), value.end(), IsControlCharacter)) {
        return false;
    }
    if (expected == kText) {
        return true;
    }
    if (expected == kWord) {
        return !value.empty() && value.find(' ') == std::string::npos;
    }
    return expected == kByte ? IsByte(value) : IsChoice(value, expected);
}

std::string Explain(const Control& control, std::string_view expected) {
    const std::string name(control.name);
    if (expected == kText) {
        return name + ": a text without control characters, of at most 512 bytes";
    }
    if (expected == kWord) {
        return name + ": a text without blanks, of at most 512 bytes";
    }
    return name + ": " +
           (expected == kByte ? "a number from 0 to 255" : "one of " + std::string(expected));
}

}  // namespace

ControlCommand ParseControlCommand(const std::string& json) {
    const auto message = nlohmann::json::parse(json, nullptr, false);
    std::string name;
    std::vector<std::string> values;
    try {
        message.at("control").get_to(name);
        message.at("values").get_to(values);
    } catch (const nlohmann::json::exception&) {
        throw CommandError("a command is {\"control\": NAME, \"values\": [TEXT...]}");
    }
    const auto* const control = std::find_if(kControls.begin(), kControls.end(),
                                             [&](const Control& c) { return c.name == name; });
    if (control == kControls.end()) {
        throw CommandError("there is no such control");
    }
    ControlCommand command{control->target, std::string(control->line)};
    const auto expected = std::count_if(control->values.begin(), control->values.end(),
                                        [](std::string_view value) { return !value.empty(); });
    if (static_cast<std::ptrdiff_t>(values.size()) != expected) {
        throw CommandError(name + " has another number of values");
    }
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (!Fits(values[i], control->values.at(i))) {
            throw CommandError(Explain(*control, control->values.at(i)));
        }
        command.line += (command.line.empty() ? "" : " ") + values[i];
    }
    return command;
}

}  // namespace simulator::page
