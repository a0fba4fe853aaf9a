#include "testing/captured_log.h"

#include <algorithm>
#include <iostream>
#include <utility>

#include <gtest/gtest.h>

#include "logging/qel_logging.h"

namespace testing_support {

using qel_logging::EQELLogLevel;

CapturedLog::CapturedLog() {
    qel_logging::QELLogging::InitLogging("TEST");
    mPrevious =
        ara_log_host::ExchangeSink({[this](ara::log::LogLevel level, const std::string& text) {
                                        const std::lock_guard<std::mutex> lock(mMutex);
                                        mLines.push_back({static_cast<EQELLogLevel>(level), text});
                                        mArrived.notify_all();
                                    },
                                    ara::log::LogLevel::kVerbose});
}

CapturedLog::~CapturedLog() {
    ara_log_host::ExchangeSink(std::move(mPrevious));
    if (testing::Test::HasFailure()) {
        for (const Line& line : mLines) {
            PrintTo(line, &std::cerr);
            std::cerr << '\n';
        }
    }
}

std::vector<CapturedLog::Line> CapturedLog::Lines() const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return mLines;
}

std::vector<std::string> CapturedLog::Lines(EQELLogLevel level) const {
    const std::lock_guard<std::mutex> lock(mMutex);
    std::vector<std::string> texts;
    for (const Line& line : mLines) {
        if (line.level == level) {
            texts.push_back(line.text);
        }
    }
    return texts;
}

bool CapturedLog::Contains(EQELLogLevel level, const std::string& text) const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return std::find(mLines.begin(), mLines.end(), Line{level, text}) != mLines.end();
}

std::size_t CapturedLog::Count(const std::string& text) const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return CountLocked(text);
}

std::size_t CapturedLog::CountLocked(const std::string& text) const {
    return static_cast<std::size_t>(std::count_if(
        mLines.begin(), mLines.end(),
        [&text](const Line& line) { return line.text.find(text) != std::string::npos; }));
}

bool CapturedLog::WaitFor(const std::string& text, std::size_t times,
                          std::chrono::milliseconds hangGuard) const {
    std::unique_lock<std::mutex> lock(mMutex);
    return mArrived.wait_for(lock, hangGuard, [&] { return CountLocked(text) >= times; });
}

void CapturedLog::Clear() {
    const std::lock_guard<std::mutex> lock(mMutex);
    mLines.clear();
}

void PrintTo(const CapturedLog::Line& line, std::ostream* stream) {
    *stream << "[" << static_cast<int>(line.level) << "] " << line.text;
}

}  // namespace testing_support
