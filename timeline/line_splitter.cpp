#include "timeline/line_splitter.h"

#include <algorithm>

namespace timeline {

void LineSplitter::Feed(std::string_view bytes) {
    while (!bytes.empty()) {
        const std::size_t end = bytes.find('\n');
        if (end == std::string_view::npos) {
            Keep(bytes);
            return;
        }
        const std::string_view line = bytes.substr(0, end);
        if (mPart.empty() && line.size() <= kMaxLineSize) {
            Deliver(line, true);
        } else {
            Keep(line);
            Deliver(mPart, !mTooLong);
        }
        mPart.clear();
        mTooLong = false;
        bytes.remove_prefix(end + 1);
    }
}

void LineSplitter::Finish() {
    if (!mPart.empty()) {
        Deliver(mPart, false);
    }
    mPart.clear();
    mTooLong = false;
}

void LineSplitter::Keep(std::string_view bytes) {
    const std::size_t room = kMaxLineSize - mPart.size();
    mTooLong = mTooLong || bytes.size() > room;
    mPart.append(bytes.substr(0, std::min(room, bytes.size())));
}

void LineSplitter::Deliver(std::string_view line, bool whole) {
    if (!line.empty() && line.back() == '\r') {
        line.remove_suffix(1);
    }
    mReceiver(line, whole);
}

}  // namespace timeline
