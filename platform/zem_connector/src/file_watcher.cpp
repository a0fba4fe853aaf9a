#include "file_watcher.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <utility>

#include <sys/inotify.h>
#include <unistd.h>

#include "library_log.h"

namespace zem_connector {

namespace {

constexpr std::chrono::milliseconds kRetryInterval{500};
constexpr std::uint32_t kFileEvents = IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE;
constexpr std::uint32_t kDirectoryGone = IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_IGNORED;
constexpr std::size_t kBufferSize = 8192;

std::string DirectoryOf(const std::string& path) {
    const auto slash = path.rfind('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? "/" : path.substr(0, slash);
}

}  // namespace

FileWatcher::FileWatcher(boost::asio::io_context& context, const std::string& path,
                         std::function<void()> changed)
    : mDirectory(DirectoryOf(path)),
      mName(path.substr(path.rfind('/') + 1)),
      mChanged(std::move(changed)),
      mInotify(context),
      mRetryTimer(context) {}

void FileWatcher::Start() {
    if (Open()) {
        WaitForEvents();
        return;
    }
    LogWarning("Can't watch the directory " + mDirectory + ": " + std::strerror(errno));
    RetryLater();
}

bool FileWatcher::Open() {
    boost::system::error_code ignored;
    mInotify.close(ignored);
    const int descriptor = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    if (descriptor < 0) {
        return false;
    }
    const int watch = inotify_add_watch(descriptor, mDirectory.c_str(),
                                        kFileEvents | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR);
    if (watch < 0) {
        const int error = errno;
        close(descriptor);
        errno = error;
        return false;
    }
    boost::system::error_code error;
    mInotify.assign(descriptor, error);
    if (error) {
        close(descriptor);
        errno = error.value();
        return false;
    }
    return true;
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
        WaitForEvents();
        mChanged();
    });
}

void FileWatcher::WaitForEvents() {
    mInotify.async_wait(boost::asio::posix::stream_descriptor::wait_read,
                        [this](const boost::system::error_code& error) {
                            if (!error) {
                                ReadEvents();
                            }
                        });
}

void FileWatcher::ReadEvents() {
    alignas(inotify_event) std::array<char, kBufferSize> buffer{};
    bool changed = false;
    bool directoryGone = false;
    ssize_t size = 0;
    while ((size = read(mInotify.native_handle(), buffer.data(), buffer.size())) > 0) {
        std::size_t offset = 0;
        while (offset < static_cast<std::size_t>(size)) {
            inotify_event event{};
            std::memcpy(&event, buffer.data() + offset, sizeof(event));
            const char* const name = buffer.data() + offset + sizeof(event);
            offset += sizeof(event) + event.len;
            directoryGone = directoryGone || (event.mask & kDirectoryGone) != 0;
            const bool overflow = (event.mask & IN_Q_OVERFLOW) != 0;
            changed = changed || overflow || (event.len > 0 && mName == name);
        }
    }
    if (directoryGone) {
        LogWarning("The directory " + mDirectory + " is gone");
        RetryLater();
    } else {
        WaitForEvents();
    }
    if (changed) {
        mChanged();
    }
}

}  // namespace zem_connector
