#pragma once

#include <functional>
#include <string>
#include <string_view>

#include <sys/types.h>

#include <posix/unique_fd.h>

namespace simulator::page {

/// Follows a file that other processes append to, however often it is replaced or truncated.
/// Belongs to one thread; a file that cannot be read is one that is missing.
class FileTail {
public:
    /// Bytes at the end of a file that exists already; what is before them is skipped.
    static constexpr off_t kMaxHistory = off_t{16} << 20U;

    /// Receives the new bytes in pieces of any size, valid during the call.
    using Receiver = std::function<void(std::string_view bytes)>;

    /// @param path of a file that may appear later; empty for none
    FileTail(std::string path, Receiver receiver);

    /// Hands out the bytes since the last call, at most 1 MiB.
    void Poll();

private:
    void Reopen();

    std::string mPath;
    Receiver mReceiver;
    posix::UniqueFd mFile;
    ino_t mInode{0};
    off_t mOffset{0};
    bool mSkipsPart{false};
};

}  // namespace simulator::page
