#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

#include <sys/types.h>

#include <ara/log/common.h>
#include <posix/unique_fd.h>

namespace ara::log::internal {

/// Writes the lines to stderr, whatever that is at the moment: journal, file, pipe or terminal.
///
/// Never blocks and never raises SIGPIPE. A line that can't be written at once is dropped; the next
/// one that can is preceded by a warning with the number of dropped lines. The rest of a partially
/// written line precedes anything else. One thread at a time.
class ConsoleOutput {
public:
    /// Makes the next line check what stderr is now, which otherwise may take a second.
    void LookAgain() { mLastLook = {}; }
    void Write(std::chrono::system_clock::time_point time, LogLevel level, const std::string& appId,
               const std::string& text);

private:
    enum class Kind { kFile, kSocket, kStream };

    void FollowStderr(std::chrono::system_clock::time_point time);
    bool Put(std::string entry);
    bool WriteRest();
    ssize_t WriteSome(std::string_view bytes) const;
    ssize_t WriteToStream(std::string_view bytes) const;

    std::chrono::system_clock::time_point mLastLook;
    dev_t mDevice{0};
    ino_t mInode{0};
    Kind mKind{Kind::kFile};
    bool mForJournal{false};
    /// Opened anew, a pipe or terminal can be non-blocking here without being so for all processes
    /// that share it. None where that isn't permitted.
    posix::UniqueFd mOwn;
    std::string mRest;
    std::size_t mDropped{0};
};

}  // namespace ara::log::internal
