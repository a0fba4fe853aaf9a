#include <exception>

#include <ara/log/log_stream.h>

#include "registry.h"

namespace ara::log {

LogStream::~LogStream() {
    if (mPending) {
        Flush();
    }
}

LogStream& LogStream::operator<<(std::string_view text) {
    if (mEnabled) {
        mText += text;
        mPending = true;
    }
    return *this;
}

LogStream& LogStream::operator<<(const char* text) {
    return *this << std::string_view(text == nullptr ? "" : text);
}

LogStream& LogStream::operator<<(bool value) {
    return *this << std::string_view(value ? "true" : "false");
}

void LogStream::Flush() noexcept {
    mPending = false;
    if (!mEnabled) {
        return;
    }
    try {
        internal::Registry::Instance().Write(mLogger, mLevel, mText);
        mText.clear();
    } catch (const std::exception&) {
        mEnabled = false;  // out of memory for one line, which can't be reported
    }
}

}  // namespace ara::log
