#include "client/transition_table.h"

#include <algorithm>
#include <cctype>
#include <fstream>

#include <nlohmann/json.hpp>

namespace client_table {

namespace {

using nlohmann::json;
using Words = std::vector<std::string>;

const json& File() {
    static const json file = json::parse(std::ifstream(CLIENT_TRANSITIONS));
    return file;
}

/// The words of a text, each with a capital letter, put together.
std::string Camel(const std::string& text) {
    std::string result;
    bool start = true;
    for (const char letter : text) {
        const auto byte = static_cast<unsigned char>(letter);
        if (std::isalnum(byte) != 0) {
            result += start ? static_cast<char>(std::toupper(byte)) : letter;
        }
        start = std::isalnum(byte) == 0;
    }
    return result;
}

/// The place of an item's kind in a story.
std::size_t Rank(const std::string& item) {
    static const std::string kinds = ">-+e";
    return kinds.find(item[0]) + 1;
}

void Tell(Words& story, const json& items) {
    for (const std::string item : items) {
        if (item[0] == '@') {
            Tell(story, File()["stories"].at(item.substr(1)));
        } else {
            story.push_back(item);
        }
    }
}

Row MakeRow(const std::string& state, const std::string& on, const json& row) {
    Row result{Camel(state) + "_" + Camel(on),
               state,
               on,
               row.value("given", Words()),
               row.value("in", Words()),
               row.value("to", state),
               {}};
    result.name += "_" + Camel(row.value("when", ""));
    for (const Words& words : {result.given, result.in}) {
        for (const std::string& word : words) {
            result.name += "_" + Camel(word);
        }
    }
    Tell(result.story, File()["triggers"].value(on, json::object()).value("story", json::array()));
    Tell(result.story, row.value("story", json::array()));
    std::stable_sort(result.story.begin(), result.story.end(),
                     [](const auto& one, const auto& other) { return Rank(one) < Rank(other); });
    return result;
}

}  // namespace

Trigger TriggerOf(const std::string& name) {
    const Words events = File()["events"];
    const json trigger = File()["triggers"].value(name, json{{"event", name}});
    const auto event = std::find(events.begin(), events.end(), trigger.at("event"));
    if (event == events.end()) {
        throw std::invalid_argument("no trigger: " + name);
    }
    return {static_cast<int>(event - events.begin()), trigger.value("info", 0),
            trigger.value("value", 0), trigger.value("text", ""), trigger.value("bare", false)};
}

std::string EventName(int event) {
    return File()["events"].at(static_cast<std::size_t>(event));
}

std::vector<Row> Table() {
    std::vector<Row> table;
    for (const auto& [state, part] : File()["states"].items()) {
        for (const json& row : part["rows"]) {
            for (const json& on : row["on"]) {
                table.push_back(MakeRow(state, on, row));
            }
        }
        for (const json& on : part.value("notes", json::array())) {
            table.push_back(MakeRow(state, on, json::object()));
        }
        for (const json& on : part.value("ends", json::array())) {
            const std::string line =
                "E Unknown event " + std::to_string(TriggerOf(on).event) + ", eventInfo: 0";
            table.push_back(MakeRow(state, on, {{"to", kTerminated}, {"story", {line, "@end"}}}));
        }
    }
    return table;
}

}  // namespace client_table
