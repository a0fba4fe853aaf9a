#include "simulator/page/log_follower.h"

#include <array>
#include <utility>

namespace simulator::page {

namespace {

using nlohmann::json;

/// A line that is longer is cut in the page; the file has it whole.
constexpr std::size_t kMaxText = 4000;

const char* LevelName(timeline::Severity severity) {
    static constexpr std::array<const char*, 7> kNames{"",     "fatal", "error",  "warn",
                                                       "info", "debug", "verbose"};
    return kNames.at(static_cast<std::size_t>(severity));
}

/// The service's own log names its zone and its year.
timeline::LineParser::Options ParserOptions() {
    return {};
}

}  // namespace

LogFollower::LogFollower()
    : mInterpreter([this](const timeline::Event& event) { AddEvent(event); }),
      mParser(ParserOptions()) {}

void LogFollower::Feed(std::string_view bytes) {
    mSplitter.Feed(bytes);
    while (const auto line = mSplitter.Next()) {
        const timeline::LogLine parsed = mParser.Parse(line->text, line->whole);
        mInterpreter.Consume(parsed);
        AddLine(parsed, line->text);
    }
}

void LogFollower::AddLine(const timeline::LogLine& parsed, std::string_view raw) {
    Line line;
    line.axis = mInterpreter.GetNow().axis;
    const bool isEntry = parsed.kind == timeline::LineKind::kEntry;
    if (isEntry) {
        line.clock = timeline::ToText(mInterpreter.GetNow());
        mLevel = LevelName(parsed.severity);
    }
    // A further line of a text belongs to the entry that it continues.
    const bool hasLevel = isEntry || parsed.kind == timeline::LineKind::kContinuation;
    line.level = hasLevel ? mLevel : std::string();
    line.text = (isEntry ? parsed.text : raw).substr(0, kMaxText);
    mNews.json["log"].push_back(ToJson(line));
    mLines.push_back(std::move(line));
    if (mLines.size() > kMaxLines) {
        mLines.pop_front();
    }
}

void LogFollower::AddEvent(const timeline::Event& event) {
    using timeline::EventKind;
    mStore.Add(event);
    mNews.json["events"].push_back(event);
    mNews.touchesStore = mNews.touchesStore || event.kind == EventKind::kPassEnd ||
                         event.kind == EventKind::kProcess ||
                         (event.kind == EventKind::kMark && event.tone != timeline::Tone::kTrigger);
}

json LogFollower::ToJson(const Line& line) {
    return {{"at", line.axis}, {"clock", line.clock}, {"level", line.level}, {"text", line.text}};
}

json LogFollower::Snapshot() const {
    json log = json::array();
    for (const Line& line : mLines) {
        log.push_back(ToJson(line));
    }
    return {{"timeline", mStore.ToJson()}, {"log", std::move(log)}};
}

LogFollower::News LogFollower::TakeNews() {
    return std::exchange(mNews, News{});
}

}  // namespace simulator::page
