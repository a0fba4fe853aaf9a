#pragma once

#include <functional>
#include <string>
#include <string_view>

#include <sys/types.h>

#include <posix/unique_fd.h>

namespace simulator::page {

/// Follows a file that other processes append to, however often it is replaced or cut.
class FileTail {
public:
    /// What a file that is there at the beginning has before this is passed over.
    static constexpr off_t kMaxHistory = off_t{16} << 20U;

    /// Gets what has come, in pieces as they come, valid during the call.
    using Receiver = std::function<void(std::string_view bytes)>;

    /// @param path the file may come later; empty: there never is one
    FileTail(std::string path, Receiver receiver);

    /// Hands out what has come since the last call, at most 1 MiB.
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
