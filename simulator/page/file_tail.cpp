#include "simulator/page/file_tail.h"

#include <array>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace simulator::page {

namespace {

constexpr std::size_t kPieces = 16;
constexpr std::size_t kPieceSize = std::size_t{64} * 1024;

}  // namespace

FileTail::FileTail(std::string path, Receiver receiver)
    : mPath(std::move(path)), mReceiver(std::move(receiver)) {}

void FileTail::Reopen() {
    struct stat state {};
    const bool first = !mFile.IsValid();
    if (mPath.empty() || ::stat(mPath.c_str(), &state) != 0) {
        return;
    }
    if (!first && state.st_ino == mInode) {
        if (state.st_size < mOffset) {
            mOffset = 0;
        }
        return;
    }
    posix::UniqueFd file(::open(mPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file.IsValid() || !S_ISREG(state.st_mode)) {
        return;
    }
    mFile = std::move(file);
    mInode = state.st_ino;
    mSkipsPart = first && state.st_size > kMaxHistory;
    mOffset = mSkipsPart ? state.st_size - kMaxHistory : 0;
}

void FileTail::Poll() {
    Reopen();
    if (!mFile.IsValid()) {
        return;
    }
    std::array<char, kPieceSize> buffer{};
    for (std::size_t i = 0; i < kPieces; ++i) {
        const ssize_t count = ::pread(mFile.Get(), buffer.data(), buffer.size(), mOffset);
        if (count <= 0) {
            return;
        }
        mOffset += count;
        std::string_view bytes(buffer.data(), static_cast<std::size_t>(count));
        if (mSkipsPart) {
            const std::size_t end = bytes.find('\n');
            mSkipsPart = end == std::string_view::npos;
            bytes.remove_prefix(mSkipsPart ? bytes.size() : end + 1);
        }
        mReceiver(bytes);
    }
}

}  // namespace simulator::page
