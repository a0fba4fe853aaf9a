#include "client/transition_table.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include <nlohmann/json.hpp>

namespace client_table {

namespace {

using nlohmann::json;

const json& File() {
    static const json file = json::parse(std::ifstream(CLIENT_TRANSITIONS));
    return file;
}

struct Row {
    Words on;
    Facts conditions;
    Words story;
    std::string to;
    std::vector<json> cases;
};

bool Contains(const Words& words, const std::string& word) {
    return std::find(words.begin(), words.end(), word) != words.end();
}

/// The names of triggers, with those of the groups ("@name") among them.
Words Names(const Words& list) {
    Words names;
    for (const std::string& name : list) {
        const bool isGroup = name[0] == '@';
        const Words part = isGroup ? Words(File()["groups"].at(name.substr(1))) : Words{name};
        names.insert(names.end(), part.begin(), part.end());
    }
    return names;
}

/// Adds rows for the triggers that have none in this state.
void AddRows(std::vector<Row>& rows, const std::string& state, const json& added) {
    const std::vector<Row> former = rows;
    for (const json& row : added) {
        Words on;
        for (const std::string& name : Names(row["on"])) {
            const auto has = [&name](const Row& other) { return Contains(other.on, name); };
            if (std::none_of(former.begin(), former.end(), has)) {
                on.push_back(name);
            }
        }
        rows.push_back({on, row.value("if", Facts()), row.value("story", Words()),
                        row.value("to", state), row.value("cases", std::vector<json>{row})});
    }
}

const std::map<std::string, std::vector<Row>>& States() {
    static const auto states = [] {
        std::map<std::string, std::vector<Row>> made;
        for (const auto& [state, rows] : File()["states"].items()) {
            AddRows(made[state], state, rows);
            AddRows(made[state], state, File()["everywhere"]);
        }
        for (const auto& [state, rows] : File()["frame states"].items()) {
            AddRows(made[state], state, rows);
        }
        return made;
    }();
    return states;
}

json Definition(const std::string& trigger) {
    return File()["triggers"].value(trigger, json{{"event", trigger}});
}

std::string Fill(const std::string& item, const Facts& facts) {
    const std::size_t begin = item.find('{');
    if (begin == std::string::npos) {
        return item;
    }
    const std::size_t end = item.find('}', begin);
    return item.substr(0, begin) + facts.at(item.substr(begin + 1, end - begin - 1)) +
           Fill(item.substr(end + 1), facts);
}

/// The place of an item's kind in the story of a case; 0 for what is not to be seen there.
std::size_t Rank(const std::string& item) {
    static const std::string kinds = "=~ >-+e";
    const std::size_t kind = kinds.find(item[0]);
    return kind == std::string::npos ? 2 : kind < 2 ? 0 : kind;
}

void AddFacts(Facts& facts, const json& more) {
    for (const auto& [fact, value] : more.items()) {
        if (value.is_string()) {
            facts[fact] = value;
        }
    }
}

Case MakeCase(const std::string& state, const std::string& on, const Row& row, const json& one) {
    const Words given = one.value("given", Words());
    const Words in = one.value("in", Words());
    Case result{state + "_" + on, state, on, given, in, row.to, {}};
    const Trigger trigger = TriggerOf(on);
    Facts facts = FirstFacts();
    AddFacts(facts, {{"event", std::to_string(trigger.event)},
                     {"info", std::to_string(trigger.info)},
                     {"value", std::to_string(trigger.value)},
                     {"text", trigger.text}});
    const auto addWord = [&](const std::string& prefix, const std::string& word) {
        result.name += prefix + word;
        for (const auto& [fact, value] : FactsOf(word)) {
            facts[fact] = value;
        }
    };
    for (const std::string& word : given) {
        addWord("_", word);
    }
    for (const std::string& word : in) {
        addWord("_in_", word);
    }
    AddFacts(facts, one);
    result.name.erase(std::remove(result.name.begin(), result.name.end(), ' '), result.name.end());
    const See see = [&result](const std::string& item) { result.story.push_back(item); };
    TellRaising(on, facts, see);
    Tell(Definition(on).value("story", Words()), facts, see);
    Tell(row.story, facts, see);
    std::stable_sort(result.story.begin(), result.story.end(),
                     [](const auto& a, const auto& b) { return Rank(a) < Rank(b); });
    result.story.erase(result.story.begin(),
                       std::find_if(result.story.begin(), result.story.end(), Rank));
    return result;
}

}  // namespace

Trigger TriggerOf(const std::string& name) {
    const json trigger = Definition(name);
    return {EventId(trigger["event"]), trigger.value("info", 0), trigger.value("value", 0),
            trigger.value("text", ""), trigger.value("bare", false)};
}

std::string NameOf(const Trigger& trigger) {
    static const auto names = [] {
        std::map<std::array<int, 3>, std::string> made;
        for (const auto& [name, definition] : File()["triggers"].items()) {
            const Trigger known = TriggerOf(name);
            if (!known.bare) {
                made.insert({{known.event, known.info, known.value}, name});
            }
        }
        return made;
    }();
    auto found = names.find({trigger.event, trigger.info, trigger.value});
    if (found == names.end()) {
        found = names.lower_bound({trigger.event, trigger.info, 0});
    }
    return found != names.end() && found->first[0] == trigger.event ? found->second
                                                                    : EventName(trigger.event);
}

std::string EventName(int event) {
    return File()["events"].at(static_cast<std::size_t>(event));
}

int EventId(const std::string& name) {
    const json& events = File()["events"];
    const auto event = std::find(events.begin(), events.end(), name);
    if (event == events.end()) {
        throw std::invalid_argument("no event or trigger: " + name);
    }
    return static_cast<int>(event - events.begin());
}

const Facts& FirstFacts() {
    static const Facts facts = File()["facts"];
    return facts;
}

const std::map<std::string, Facts>& Troubles() {
    static const std::map<std::string, Facts> troubles = File()["troubles"];
    return troubles;
}

const Facts& FactsOf(const std::string& word) {
    static const auto all = [] {
        std::map<std::string, Facts> words = File()["words"];
        words.insert(Troubles().begin(), Troubles().end());
        return words;
    }();
    static const Facts none;
    const auto found = all.find(word);
    return found == all.end() ? none : found->second;
}

void Tell(const Words& story, Facts& facts, const See& see) {
    static const std::map<std::string, Words> stories = File()["stories"];
    for (const std::string& item : story) {
        const std::string filled = Fill(item, facts);
        if (item[0] == '@') {
            Tell(stories.at(filled.substr(1)), facts, see);
        } else if (item[0] == '!') {
            const std::size_t colon = filled.find(": ");
            facts[filled.substr(2, colon - 2)] = filled.substr(colon + 2);
        } else {
            see(filled);
        }
    }
}

void TellRaising(const std::string& trigger, Facts& facts, const See& see) {
    Tell(Definition(trigger).value("raised", Words()), facts, see);
}

std::string Follow(const std::string& state, const std::string& trigger, Facts& facts,
                   const See& see) {
    Tell(Definition(trigger).value("story", Words()), facts, see);
    const auto holds = [&facts](const auto& condition) {
        return facts.at(condition.first) == condition.second;
    };
    for (const Row& row : States().at(state)) {
        if (Contains(row.on, trigger) &&
            std::all_of(row.conditions.begin(), row.conditions.end(), holds)) {
            Tell(row.story, facts, see);
            return row.to;
        }
    }
    throw std::logic_error("no row for " + trigger + " in " + state);
}

std::vector<Case> Cases() {
    std::vector<Case> cases;
    for (const auto& [state, rows] : States()) {
        for (const Row& row : rows) {
            for (const json& one : row.cases) {
                for (const std::string& name : one.contains("on") ? Names(one["on"]) : row.on) {
                    if (Contains(row.on, name)) {
                        cases.push_back(MakeCase(state, name, row, one));
                    }
                }
            }
        }
    }
    return cases;
}

}  // namespace client_table
