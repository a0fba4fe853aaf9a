#include "console_output.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "ara_log_host/line_format.h"
#include "sigpipe_block.h"

namespace ara::log::internal {

namespace {

/// Whether stderr itself, which may be shared, is writable: a pipe then has room for PIPE_BUF
/// bytes.
bool IsWritable() {
    pollfd entry{STDERR_FILENO, POLLOUT, 0};
    return poll(&entry, 1, 0) == 1 && (entry.revents & POLLOUT) != 0;
}

}  // namespace

void ConsoleOutput::Write(std::chrono::system_clock::time_point time, LogLevel level,
                          const std::string& appId, const std::string& text) {
    FollowStderr(time);
    if (mDropped > 0 &&
        Put(ara_log_host::FormatEntry(mForJournal, time, LogLevel::kWarn, appId,
                                      "log lines dropped: " + std::to_string(mDropped)))) {
        mDropped = 0;
    }
    if (mDropped > 0 || !Put(ara_log_host::FormatEntry(mForJournal, time, level, appId, text))) {
        ++mDropped;
    }
}

void ConsoleOutput::FollowStderr(std::chrono::system_clock::time_point time) {
    // A descriptor of our own must not outlive a redirection, so it is checked for each line.
    // Without one a redirection has effect by itself, and only the format may be outdated for a
    // second.
    const auto second = std::chrono::floor<std::chrono::seconds>(time);
    if (!mOwn.IsValid() && second == mLastLook) {
        return;
    }
    mLastLook = second;
    struct stat status {};
    if (fstat(STDERR_FILENO, &status) != 0 ||
        (status.st_dev == mDevice && status.st_ino == mInode)) {
        return;
    }
    mDevice = status.st_dev;
    mInode = status.st_ino;
    mForJournal = ara_log_host::IsJournalStream(std::getenv("JOURNAL_STREAM"), STDERR_FILENO);
    mRest.clear();
    mOwn = posix::UniqueFd();
    mKind = S_ISSOCK(status.st_mode) ? Kind::kSocket : Kind::kFile;
    if (S_ISFIFO(status.st_mode) || isatty(STDERR_FILENO) != 0) {
        mKind = Kind::kStream;
        mOwn =
            posix::UniqueFd(open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    }
}

/// False if no byte of the entry was written; otherwise its rest will follow.
bool ConsoleOutput::Put(std::string entry) {
    if (!WriteRest()) {
        return false;
    }
    const std::size_t size = entry.size();
    mRest = std::move(entry);
    WriteRest();
    if (mRest.size() < size) {
        return true;
    }
    mRest.clear();
    return false;
}

bool ConsoleOutput::WriteRest() {
    while (!mRest.empty()) {
        const ssize_t written = WriteSome(mRest);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return false;
        }
        mRest.erase(0, static_cast<std::size_t>(written));
    }
    return true;
}

ssize_t ConsoleOutput::WriteSome(std::string_view bytes) const {
    switch (mKind) {
        case Kind::kSocket:
            return send(STDERR_FILENO, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        case Kind::kStream:
            return WriteToStream(bytes);
        case Kind::kFile:
            break;
    }
    return write(STDERR_FILENO, bytes.data(), bytes.size());
}

ssize_t ConsoleOutput::WriteToStream(std::string_view bytes) const {
    if (!mOwn.IsValid() && !IsWritable()) {
        errno = EAGAIN;
        return -1;
    }
    const SigpipeBlock block;
    const ssize_t written = mOwn.IsValid() ? write(mOwn.Get(), bytes.data(), bytes.size())
                                           : write(STDERR_FILENO, bytes.data(),
                                                   std::min<std::size_t>(bytes.size(), PIPE_BUF));
    if (written < 0 && errno == EPIPE) {
        block.Discard();
        errno = EPIPE;
    }
    return written;
}

}  // namespace ara::log::internal
