#include "directory_watch.h"

#include <array>
#include <cstring>
#include <utility>

#include <sys/inotify.h>
#include <unistd.h>

namespace someip {

namespace {

constexpr std::uint32_t kChanges =
    IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_ATTRIB;
constexpr std::uint32_t kDirectoryGone = IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_IGNORED;

}  // namespace

std::shared_ptr<DirectoryWatch> DirectoryWatch::Open(const boost::asio::any_io_executor& executor,
                                                     const std::string& directory,
                                                     std::function<void(bool watching)> changed) {
    const int descriptor = ::inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    if (descriptor < 0) {
        return nullptr;
    }
    auto watch = std::make_shared<DirectoryWatch>(executor, descriptor, std::move(changed));
    if (::inotify_add_watch(descriptor, directory.c_str(),
                            kChanges | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR) < 0) {
        return nullptr;
    }
    watch->Wait();
    return watch;
}

DirectoryWatch::DirectoryWatch(const boost::asio::any_io_executor& executor, int descriptor,
                               std::function<void(bool watching)> changed)
    : mInotify(executor, descriptor), mChanged(std::move(changed)) {}

void DirectoryWatch::Close() {
    mChanged = nullptr;
    boost::system::error_code ignored;
    mInotify.close(ignored);
}

void DirectoryWatch::Wait() {
    mInotify.async_wait(boost::asio::posix::stream_descriptor::wait_read,
                        [self = shared_from_this()](const auto& error) {
                            if (!error && self->mChanged) {
                                self->Read();
                            }
                        });
}

void DirectoryWatch::Read() {
    alignas(inotify_event) std::array<char, 8192> buffer{};
    bool watching = true;
    ssize_t size = 0;
    while ((size = ::read(mInotify.native_handle(), buffer.data(), buffer.size())) > 0) {
        for (std::size_t at = 0; at < static_cast<std::size_t>(size);) {
            inotify_event event{};
            std::memcpy(&event, buffer.data() + at, sizeof(event));
            at += sizeof(event) + event.len;
            watching = watching && (event.mask & kDirectoryGone) == 0;
        }
    }
    const auto changed = mChanged;
    if (watching) {
        Wait();
    } else {
        Close();
    }
    changed(watching);
}

}  // namespace someip
