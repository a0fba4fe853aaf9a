#include "timeline/log_reader.h"

#include <utility>

namespace timeline {

LogReader::LogReader(LineParser::Options options, EventReceiver receiver)
    : mInterpreter(std::move(receiver)),
      mParser(std::move(options)),
      mSplitter([this](std::string_view line, bool whole) {
          mInterpreter.Consume(mParser.Parse(line, whole));
      }) {}

void LogReader::Finish() {
    EndFile();
    mInterpreter.Finish();
}

}  // namespace timeline
