#pragma once

#include <string_view>

#include "timeline/line_parser.h"
#include "timeline/line_splitter.h"
#include "timeline/log_interpreter.h"

namespace timeline {

/// The way from bytes to events: splitter, parser and interpreter in one. Files may be fed one
/// behind the other, and a growing log as it grows.
class LogReader {
public:
    LogReader(LineParser::Options options, EventReceiver receiver);
    LogReader(const LogReader&) = delete;
    LogReader& operator=(const LogReader&) = delete;
    ~LogReader() = default;

    void Feed(std::string_view bytes) { mSplitter.Feed(bytes); }
    /// A file has ended: what it has behind its last line's end belongs to no next line.
    void EndFile() { mSplitter.Finish(); }
    /// The log has ended; nothing is fed behind it.
    void Finish();

    const LogInterpreter& GetInterpreter() const { return mInterpreter; }

private:
    LogInterpreter mInterpreter;
    LineParser mParser;
    LineSplitter mSplitter;
};

}  // namespace timeline
