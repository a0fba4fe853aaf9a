#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include <sys/inotify.h>

#include <posix/directory_watch.h>

namespace posix {

namespace {

constexpr std::uint32_t kFileEvents =
    IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_ATTRIB;
constexpr std::uint32_t kDirectoryGone = IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_IGNORED;
constexpr std::size_t kBufferSize = 8192;

}  // namespace

std::shared_ptr<DirectoryWatch> DirectoryWatch::Open(const boost::asio::any_io_executor& executor,
                                                     const std::string& directory,
                                                     const std::string& name, Handler handler) {
    UniqueFd inotify(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    if (!inotify.IsValid() ||
        ::inotify_add_watch(inotify.Get(), directory.c_str(),
                            kFileEvents | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR) < 0) {
        return nullptr;
    }
    auto watch = std::make_shared<DirectoryWatch>(executor, name, std::move(handler));
    if (!watch->Assign(std::move(inotify))) {
        return nullptr;
    }
    watch->Wait();
    return watch;
}

DirectoryWatch::DirectoryWatch(const boost::asio::any_io_executor& executor, std::string name,
                               Handler handler)
    : mInotify(executor), mName(std::move(name)), mHandler(std::move(handler)) {}

bool DirectoryWatch::Assign(UniqueFd inotify) {
    boost::system::error_code error;
    mInotify.assign(inotify.Get(), error);
    if (error) {
        errno = error.value();
        return false;
    }
    inotify.Release();
    return true;
}

void DirectoryWatch::Close() {
    mHandler = nullptr;
    boost::system::error_code ignored;
    mInotify.close(ignored);
}

void DirectoryWatch::Wait() {
    mInotify.async_wait(boost::asio::posix::stream_descriptor::wait_read,
                        [self = shared_from_this()](const boost::system::error_code& error) {
                            if (!error && self->mHandler) {
                                self->Read();
                            }
                        });
}

void DirectoryWatch::Read() {
    alignas(inotify_event) std::array<char, kBufferSize> buffer{};
    Report report;
    ssize_t size = 0;
    while ((size = ::read(mInotify.native_handle(), buffer.data(), buffer.size())) > 0) {
        const Report part = Parse(buffer.data(), static_cast<std::size_t>(size));
        report.changed = report.changed || part.changed;
        report.watching = report.watching && part.watching;
    }
    // The handler may close the watch, which destroys the handler.
    const Handler handler = mHandler;
    if (report.watching) {
        Wait();
    } else {
        Close();
    }
    if (report.changed || !report.watching) {
        handler(report);
    }
}

DirectoryWatch::Report DirectoryWatch::Parse(const char* events, std::size_t size) const {
    Report report;
    for (std::size_t at = 0; at < size;) {
        inotify_event event{};
        std::memcpy(&event, events + at, sizeof(event));
        const char* const name = events + at + sizeof(event);
        at += sizeof(event) + event.len;
        report.watching = report.watching && (event.mask & kDirectoryGone) == 0;
        const bool isLost = (event.mask & IN_Q_OVERFLOW) != 0;
        const bool isAwaited = mName.empty() || (event.len > 0 && mName == name);
        report.changed = report.changed || isLost || isAwaited;
    }
    return report;
}

}  // namespace posix
