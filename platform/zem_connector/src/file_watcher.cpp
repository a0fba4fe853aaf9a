#include "file_watcher.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <utility>

#include <posix/path.h>

#include "library_log.h"

namespace zem_connector {

namespace {

constexpr std::chrono::milliseconds kRetryInterval{500};

}  // namespace

FileWatcher::FileWatcher(boost::asio::io_context& context, const std::string& path,
                         std::function<void()> changed)
    : mContext(context),
      mDirectory(posix::DirectoryOf(path)),
      mName(path.substr(path.rfind('/') + 1)),
      mChanged(std::move(changed)),
      mRetryTimer(context) {}

FileWatcher::~FileWatcher() {
    if (mWatch) {
        mWatch->Close();
    }
}

void FileWatcher::Start() {
    if (!Open()) {
        Log().Warn("Can't watch the directory " + mDirectory + ": " + std::strerror(errno));
        RetryLater();
    }
}

bool FileWatcher::Open() {
    mWatch = posix::DirectoryWatch::Open(
        mContext.get_executor(), mDirectory, mName,
        [this](const posix::DirectoryWatch::Report& report) { OnReport(report); });
    return mWatch != nullptr;
}

void FileWatcher::RetryLater() {
    mRetryTimer.expires_after(kRetryInterval);
    mRetryTimer.async_wait([this](const boost::system::error_code& error) {
        if (error) {
            return;
        }
        if (!Open()) {
            RetryLater();
            return;
        }
        mChanged();
    });
}

void FileWatcher::OnReport(const posix::DirectoryWatch::Report& report) {
    if (!report.watching) {
        Log().Warn("The directory " + mDirectory + " is gone");
        RetryLater();
    }
    if (report.changed) {
        mChanged();
    }
}

}  // namespace zem_connector
