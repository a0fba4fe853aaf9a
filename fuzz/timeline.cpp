// The reader of logs: lines of any bytes, in any form, from their cutting to what is drawn.

#include <cstdint>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "fuzz/check.h"
#include "timeline/html_report.h"
#include "timeline/log_reader.h"
#include "timeline/timeline_store.h"

namespace {

using fuzz::Check;
using timeline::Event;
using timeline::EventKind;
using timeline::TimelineStore;

constexpr TimelineStore::Limits kLimits{64, 16, 4, 8};
constexpr std::int64_t kNotAfter = 1795305600;

struct Read {
    std::string data;
    timeline::LineCounts counts;
};

/// Reads the log in two pieces.
Read ReadLog(std::string_view log, std::size_t cut) {
    TimelineStore store(kLimits);
    std::int64_t axis = 0;
    bool inPass = false;
    timeline::LogReader reader({nullptr, kNotAfter}, [&](const Event& event) {
        Check(event.moment.axis >= axis, "the axis goes forwards");
        axis = event.moment.axis;
        if (event.kind == EventKind::kPassBegin || event.kind == EventKind::kPassEnd) {
            Check(inPass == (event.kind == EventKind::kPassEnd), "passes do not overlap");
            inPass = !inPass;
        }
        Check(event.text.size() < 1024, "no text of an event is as long as the log likes");
        store.Add(event);
    });
    reader.Feed(log.substr(0, cut));
    reader.Feed(log.substr(cut));
    reader.Finish();
    Check(!inPass, "every pass ends with the log");
    return {timeline::JsonForHtml(store.ToJson()), reader.GetInterpreter().GetCounts()};
}

std::uint64_t Sum(const timeline::LineCounts& counts) {
    return counts.entries + counts.continuations + counts.truncated + counts.interleaved +
           counts.foreign;
}

std::size_t CountEvents(const nlohmann::json& data) {
    std::size_t events = 0;
    for (const nlohmann::json& section : data["sections"]) {
        events += section.contains("events") ? section["events"].size() : 0;
    }
    return events;
}

}  // namespace

void fuzz::TryInput(std::string_view input) {
    const Read whole = ReadLog(input, 0);
    const Read halves = ReadLog(input, input.size() / 2);
    Check(whole.data == halves.data && Sum(whole.counts) == Sum(halves.counts),
          "a log reads the same however its bytes come");
    Check(Sum(whole.counts) <= input.size() + 1, "no line is counted twice");
    Check(whole.data.find('<') == std::string::npos, "nothing in the data can end a script");
    Check(CountEvents(nlohmann::json::parse(whole.data)) <= kLimits.events + 1,
          "what is kept is bounded");
}
