#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include <posix/line_splitter.h>

#include "timeline/line_parser.h"
#include "timeline/log_interpreter.h"
#include "timeline/timeline_store.h"

namespace simulator::page {

/// Makes of a growing log what the page shows of it: the newest lines, each with its moment in the
/// lanes, and the events of the lanes. Bounded memory, however long the log gets, if the news are
/// taken regularly. Belongs to one thread.
class LogFollower {
public:
    /// Newest lines that are kept.
    static constexpr std::size_t kMaxLines = 4000;

    LogFollower();
    LogFollower(const LogFollower&) = delete;
    LogFollower& operator=(const LogFollower&) = delete;
    ~LogFollower() = default;

    void Feed(std::string_view bytes);

    /// Everything that is kept: {"timeline": ..., "log": [...]}.
    nlohmann::json Snapshot() const;

    struct News {
        /// {"events": [...], "log": [...]}, without what is empty.
        nlohmann::json json = nlohmann::json::object();
        /// The certificates in the store may have changed.
        bool touchesStore{false};
    };
    /// The news since the last call.
    News TakeNews();

private:
    struct Line {
        std::int64_t axis{0};
        std::string clock;
        std::string level;
        std::string text;
    };

    void AddLine(const timeline::LogLine& parsed, std::string_view raw);
    void AddEvent(const timeline::Event& event);
    static nlohmann::json ToJson(const Line& line);

    timeline::TimelineStore mStore;
    std::deque<Line> mLines;
    std::string mLevel;
    News mNews;
    timeline::LogInterpreter mInterpreter;
    timeline::LineParser mParser;
    posix::LineSplitter mSplitter{timeline::LineParser::kMaxLineSize};
};

}  // namespace simulator::page
