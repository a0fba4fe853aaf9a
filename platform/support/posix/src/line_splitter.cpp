#include <algorithm>

#include <posix/line_splitter.h>

namespace posix {

void LineSplitter::Feed(std::string_view bytes) {
    mBuffer.erase(0, mBegin);
    mSearched -= mBegin;
    mBegin = 0;
    mBuffer.append(bytes);
}

std::optional<LineSplitter::Line> LineSplitter::Next() {
    const std::size_t end = mBuffer.find('\n', mSearched);
    if (end != std::string::npos) {
        Line line = Take(end, !mTooLong && end - mBegin <= mMaxLineSize);
        mBegin = mSearched = end + 1;
        mTooLong = false;
        return line;
    }
    if (mBuffer.size() - mBegin > mMaxLineSize) {
        mTooLong = true;
        mBuffer.resize(mBegin + mMaxLineSize);
    }
    mSearched = mBuffer.size();
    return std::nullopt;
}

std::optional<LineSplitter::Line> LineSplitter::Finish() {
    const std::size_t end = mBuffer.size();
    if (mBegin == end) {
        return std::nullopt;
    }
    Line rest = Take(end, false);
    mBegin = mSearched = end;
    mTooLong = false;
    return rest;
}

LineSplitter::Line LineSplitter::Take(std::size_t end, bool whole) {
    std::string_view text =
        std::string_view(mBuffer).substr(mBegin, std::min(end - mBegin, mMaxLineSize));
    if (!text.empty() && text.back() == '\r') {
        text.remove_suffix(1);
    }
    return {text, whole};
}

}  // namespace posix
