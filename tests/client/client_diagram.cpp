#include "client/client_diagram.h"

#include <algorithm>
#include <sstream>
#include <utility>
#include <vector>

#include "client/transition_table.h"

namespace client_table {

namespace {

using Texts = std::vector<std::string>;

constexpr int kConnectorInfos = 5;

/// Texts by key, both in the order in which they come, each text once.
class Groups {
public:
    using Entry = std::pair<std::string, Texts>;

    void Add(const std::string& key, const std::string& text) {
        Texts& texts = Of(key);
        if (!text.empty() && std::find(texts.begin(), texts.end(), text) == texts.end()) {
            texts.push_back(text);
        }
    }
    Texts& Of(const std::string& key) {
        const auto entry = std::find_if(mEntries.begin(), mEntries.end(),
                                        [&key](const Entry& known) { return known.first == key; });
        return entry != mEntries.end() ? entry->second : mEntries.emplace_back(key, Texts()).second;
    }
    const std::vector<Entry>& Entries() const { return mEntries; }

private:
    std::vector<Entry> mEntries;
};

std::string Join(const Texts& texts, const std::string& separator) {
    std::string result;
    for (const std::string& text : texts) {
        result.append(result.empty() ? "" : separator).append(text);
    }
    return result;
}

std::string EventText(const Trigger& trigger) {
    static const Texts infos = {"status", "activation", "connection", "URL"};
    std::string name = EventName(trigger.event);
    if (name != "kEventZemConnector") {
        return name;
    }
    const auto info = static_cast<std::size_t>(trigger.info);
    return name + " " + (info < infos.size() ? infos[info] : "other");
}

bool IsFrame(const std::string& state) {
    return state == kNotStarted || state == kTerminated;
}

/// One arrow for each pair of states; its label has a line for each event.
void WriteDiagram(std::ostream& page) {
    page << "```mermaid\nstateDiagram-v2\n    [*] --> " << kWaitTrigger << ": StartFsm\n";
    Groups arrows;
    Groups conditions;
    for (const Row& row : Table()) {
        if (!row.next.empty() && row.kind != Kind::kEnd) {
            const std::string arrow = row.state + " --> " + row.next + ": ";
            arrows.Add(arrow, EventText(row.trigger));
            conditions.Add(arrow + EventText(row.trigger), row.when);
        }
    }
    for (const auto& [arrow, events] : arrows.Entries()) {
        Texts labels;
        for (const std::string& event : events) {
            const std::string condition = Join(conditions.Of(arrow + event), " / ");
            labels.push_back(event);
            if (!condition.empty()) {
                labels.back().append(" (").append(condition).append(")");
            }
        }
        page << "    " << arrow << Join(labels, "<br/>") << "\n";
    }
    page << "```\n";
}

/// The connector's infos count as one if the state treats them all alike.
Texts MergeInfos(Texts events) {
    const auto isConnector = [](const std::string& event) {
        return event.find("ZemConnector") != std::string::npos;
    };
    if (std::count_if(events.begin(), events.end(), isConnector) == kConnectorInfos) {
        events.erase(std::remove_if(events.begin(), events.end(), isConnector), events.end());
        events.insert(events.begin(), "`kEventZemConnector`");
    }
    return events;
}

/// What the state does beside writing to the log.
Texts Effects(const Row& row) {
    Texts effects;
    for (const std::string& item : row.story) {
        if (item[0] == '>' || item[0] == '+') {
            effects.push_back((item[0] == '+' ? "raises " : "") + item.substr(2));
        }
    }
    return effects;
}

/// The rows of the state's own that leave it where it is.
void WriteStays(std::ostream& page) {
    Groups rows;
    Groups effects;
    for (const Row& row : Table()) {
        if (row.next.empty() && row.kind == Kind::kOwn) {
            const std::string key = "| `" + row.state + "` | " + row.when + " | ";
            rows.Add(key, "`" + EventText(row.trigger) + "`");
            effects.Add(key, Join(Effects(row), ", "));
        }
    }
    page << "\nThe state does something and stays; where nothing stands under \"Does\" it only "
            "writes to the log:\n\n| State | Condition | Events | Does |\n|---|---|---|---|\n";
    for (const auto& [key, events] : rows.Entries()) {
        page << key << Join(MergeInfos(events), ", ") << " | " << Join(effects.Of(key), ", ")
             << " |\n";
    }
}

void WriteCommon(std::ostream& page) {
    Groups rows;
    for (const Row& row : Table()) {
        if (row.kind == Kind::kCommon && !IsFrame(row.state)) {
            rows.Add(row.state, "`" + EventText(row.trigger) + "`");
        }
    }
    page << "\nThe event is only noted, in the same way wherever it comes:\n\n| State | Events "
            "|\n|---|---|\n";
    for (const auto& [state, events] : rows.Entries()) {
        page << "| `" << state << "` | " << Join(MergeInfos(events), ", ") << " |\n";
    }
}

}  // namespace

std::string Diagram() {
    std::ostringstream page;
    WriteDiagram(page);
    WriteStays(page);
    WriteCommon(page);
    page << "\n`kEventShutdown` ends the machine and the loop in every state. A rejected session "
            "ends "
            "the machine in every state, and so does every event that stands nowhere above.\n";
    return page.str();
}

}  // namespace client_table
