#pragma once

#include <string_view>

#include <posix/line_splitter.h>

#include "timeline/line_parser.h"
#include "timeline/log_interpreter.h"

namespace timeline {

/// The way from bytes to events: splitter, parser and interpreter in one. Files may be fed one
/// behind the other, and a growing log as it grows. Bytes of any kind are accepted; what they were
/// is in the interpreter's counts. Belongs to one thread.
class LogReader {
public:
    /// The receiver is called during `Feed`, `EndFile` and `Finish`.
    LogReader(LineParser::Options options, EventReceiver receiver);
    LogReader(const LogReader&) = delete;
    LogReader& operator=(const LogReader&) = delete;
    ~LogReader() = default;

    void Feed(std::string_view bytes);
    /// A file has ended: bytes behind its last line's end are not continued by the next file.
    void EndFile();
    /// The log has ended; nothing may be fed afterwards.
    void Finish();

    const LogInterpreter& GetInterpreter() const { return mInterpreter; }

private:
    void Read(const posix::LineSplitter::Line& line);

    LogInterpreter mInterpreter;
    LineParser mParser;
    posix::LineSplitter mSplitter{LineParser::kMaxLineSize};
};

}  // namespace timeline
