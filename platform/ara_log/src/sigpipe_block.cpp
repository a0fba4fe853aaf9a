#include "sigpipe_block.h"

#include <ctime>

#include <pthread.h>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): sigtimedwait is not in <csignal>

namespace ara::log::internal {

namespace {

sigset_t Sigpipe() {
    sigset_t signals{};
    sigaddset(&signals, SIGPIPE);
    return signals;
}

}  // namespace

SigpipeBlock::SigpipeBlock() {
    const sigset_t signals = Sigpipe();
    pthread_sigmask(SIG_BLOCK, &signals, &mFormer);
}

SigpipeBlock::~SigpipeBlock() {
    pthread_sigmask(SIG_SETMASK, &mFormer, nullptr);
}

void SigpipeBlock::Discard() const {
    // A thread that blocks the signal itself handles a pending one itself.
    if (sigismember(&mFormer, SIGPIPE) == 0) {
        const sigset_t signals = Sigpipe();
        const timespec noTime{};
        sigtimedwait(&signals, nullptr, &noTime);
    }
}

}  // namespace ara::log::internal
