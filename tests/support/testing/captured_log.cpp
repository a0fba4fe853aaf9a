#include "testing/captured_log.h"

#include <algorithm>
#include <iostream>
#include <utility>

#include <gtest/gtest.h>

#include "logging/qel_logging.h"

namespace testing_support {

CapturedLog::CapturedLog() {
    qel_logging::QELLogging::InitLogging("TEST");
    mPrevious =
        ara_log_host::ExchangeSink({[this](ara::log::LogLevel level, const std::string& text) {
                                        const std::lock_guard<std::mutex> lock(mMutex);
                                        mLines.push_back({"?FEWIDV"[static_cast<int>(level)], ' '});
                                        mLines.back() += text;
                                        mArrived.notify_all();
                                    },
                                    ara::log::LogLevel::kVerbose});
}

CapturedLog::~CapturedLog() {
    ara_log_host::ExchangeSink(std::move(mPrevious));
    if (testing::Test::HasFailure()) {
        for (const std::string& line : mLines) {
            std::cerr << line << '\n';
        }
    }
}

std::vector<std::string> CapturedLog::Lines() const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return mLines;
}

std::vector<std::string> CapturedLog::Lines(char level) const {
    std::vector<std::string> texts;
    for (const std::string& line : Lines()) {
        if (line.front() == level) {
            texts.push_back(line.substr(2));
        }
    }
    return texts;
}

bool CapturedLog::Contains(const std::string& line) const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return std::find(mLines.begin(), mLines.end(), line) != mLines.end();
}

std::size_t CapturedLog::Count(const std::string& text) const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return CountLocked(text);
}

std::size_t CapturedLog::CountLocked(const std::string& text) const {
    return static_cast<std::size_t>(std::count_if(
        mLines.begin(), mLines.end(),
        [&text](const std::string& line) { return line.find(text) != std::string::npos; }));
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

}  // namespace testing_support
