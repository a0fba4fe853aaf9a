#pragma once

#include <csignal>

namespace ara::log::internal {

/// While it lives, a write of this thread to a pipe without a reader fails without SIGPIPE: neither
/// is the process terminated nor its handler called.
class SigpipeBlock {
public:
    SigpipeBlock();
    SigpipeBlock(const SigpipeBlock&) = delete;
    SigpipeBlock& operator=(const SigpipeBlock&) = delete;
    ~SigpipeBlock();

    /// To be called after a write failed with EPIPE: consumes the pending signal, which would be
    /// delivered otherwise.
    void Discard() const;

private:
    sigset_t mFormer{};
};

}  // namespace ara::log::internal
