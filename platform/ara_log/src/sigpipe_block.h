#pragma once

#include <csignal>

namespace ara::log::internal {

/// While it lives, a write of this thread to a pipe without reader fails and raises no SIGPIPE:
/// neither does the process end, nor does its handler hear of what is no business of its own.
class SigpipeBlock {
public:
    SigpipeBlock();
    SigpipeBlock(const SigpipeBlock&) = delete;
    SigpipeBlock& operator=(const SigpipeBlock&) = delete;
    ~SigpipeBlock();

    /// To be called if a write may have failed so: otherwise the signal comes after all.
    void Discard() const;

private:
    sigset_t mFormer{};
};

}  // namespace ara::log::internal
