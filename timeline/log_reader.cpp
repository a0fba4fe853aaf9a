#include "timeline/log_reader.h"

#include <utility>

namespace timeline {

LogReader::LogReader(LineParser::Options options, EventReceiver receiver)
    : mInterpreter(std::move(receiver)), mParser(std::move(options)) {}

void LogReader::Feed(std::string_view bytes) {
    mSplitter.Feed(bytes);
    while (const auto line = mSplitter.Next()) {
        Read(*line);
    }
}

void LogReader::EndFile() {
    if (const auto rest = mSplitter.Finish()) {
        Read(*rest);
    }
}

void LogReader::Finish() {
    EndFile();
    mInterpreter.Finish();
}

void LogReader::Read(const posix::LineSplitter::Line& line) {
    mInterpreter.Consume(mParser.Parse(line.text, line.whole));
}

}  // namespace timeline
