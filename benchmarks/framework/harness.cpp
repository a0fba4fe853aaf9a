#include "benchmarks/framework/harness.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstring>
#include <fstream>
#include <random>

#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

namespace framework_bench {

namespace {

/// Longer than any read, so that each finds its expected bytes in one piece.
constexpr std::size_t kPatternPeriod = 251;
constexpr std::size_t kLongestRead = 4096;
constexpr std::size_t kFillBytes = 128U << 10U;
constexpr int kSettleMillisec = 30;

unsigned char PatternByte(std::uint64_t position) {
    return static_cast<unsigned char>(position % kPatternPeriod);
}

}  // namespace

void CheckCall(long result, const std::string& call) {
    if (result < 0) {
        throw CheckFailure(call + ": " + std::strerror(errno));
    }
}

void Sequence::CheckComplete() const {
    Check(mNext == mCount, std::to_string(mNext) + " events instead of " + std::to_string(mCount));
    Check(mInOrder, "events out of order");
}

TimerSet::TimerSet() {
    std::mt19937 random(20);
    std::uniform_int_distribution<int> delay(0, kMaxTimerMillisec);
    mDelays.resize(kTimers);
    for (int& each : mDelays) {
        each = delay(random);
    }
    mFired.reserve(kTimers);
}

void TimerSet::CheckComplete() const {
    Check(mFired.size() == mDelays.size(), std::to_string(mFired.size()) + " timers fired");
    std::array<std::vector<std::size_t>, kMaxTimerMillisec + 1> byDelay;
    for (std::size_t index = 0; index < mDelays.size(); ++index) {
        byDelay.at(static_cast<std::size_t>(mDelays[index])).push_back(index);
    }
    std::array<std::size_t, kMaxTimerMillisec + 1> next{};
    for (const std::size_t index : mFired) {
        const auto delay = static_cast<std::size_t>(mDelays.at(index));
        const std::vector<std::size_t>& same = byDelay.at(delay);
        Check(next.at(delay) < same.size() && same[next.at(delay)] == index,
              "timers of one delay out of order");
        ++next.at(delay);
        for (std::size_t shorter = 0; shorter < delay; ++shorter) {
            const std::vector<std::size_t>& earlier = byDelay.at(shorter);
            Check(next.at(shorter) == earlier.size() || earlier[next.at(shorter)] > index,
                  "a timer fired before an earlier one of a shorter delay");
        }
    }
}

IdleDescriptor::IdleDescriptor() : mDescriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    CheckCall(mDescriptor, "eventfd");
}

IdleDescriptor::~IdleDescriptor() {
    close(mDescriptor);
}

int IdleDescriptor::Duplicate() const {
    const int copy = dup(mDescriptor);
    CheckCall(copy, "dup");
    return copy;
}

OneCpu::OneCpu() {
    CheckCall(sched_getaffinity(0, sizeof(mBefore), &mBefore), "sched_getaffinity");
    const int here = sched_getcpu();
    CheckCall(here, "sched_getcpu");
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(static_cast<unsigned int>(here), &one);
    CheckCall(sched_setaffinity(0, sizeof(one), &one), "sched_setaffinity");
}

OneCpu::~OneCpu() {
    sched_setaffinity(0, sizeof(mBefore), &mBefore);
}

Credits::Credits(unsigned int lots, std::uint64_t lotSize) : mLotSize(lotSize) {
    CheckCall(sem_init(&mLots, 0, lots), "sem_init");
}

Credits::~Credits() {
    sem_destroy(&mLots);
}

void Credits::Take() {
    if (mTaken % mLotSize == 0) {
        while (sem_wait(&mLots) != 0 && errno == EINTR) {
        }
    }
    ++mTaken;
}

void Credits::Give() {
    ++mGiven;
    if (mGiven % mLotSize == 0) {
        sem_post(&mLots);
    }
}

ByteStream::ByteStream() {
    std::array<int, 2> ends{};
    CheckCall(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()),
              "socketpair");
    mNearEnd = ends[0];
    mFarEnd = ends[1];
    const int bufferSize = 4 * static_cast<int>(kFillBytes);
    CheckCall(setsockopt(mFarEnd, SOL_SOCKET, SO_SNDBUF, &bufferSize, sizeof(bufferSize)),
              "setsockopt");
    for (std::size_t i = 0; i < kFillBytes + kPatternPeriod; ++i) {
        mPattern.push_back(PatternByte(i));
    }
    Fill();
}

ByteStream::~ByteStream() {
    close(mFarEnd);
    if (mNearEnd >= 0) {
        close(mNearEnd);
    }
}

void ByteStream::Fill() {
    const unsigned char* from = mPattern.data() + mFilled % kPatternPeriod;
    const ssize_t written = send(mFarEnd, from, kFillBytes, MSG_NOSIGNAL);
    Check(written == static_cast<ssize_t>(kFillBytes), "the socket does not take the bytes");
    mFilled += kFillBytes;
}

bool ByteStream::Take(const unsigned char* data, std::size_t size) {
    mIntact = mIntact && size <= kLongestRead &&
              std::memcmp(data, mPattern.data() + mRead % kPatternPeriod, size) == 0;
    mRead += size;
    if (mRead < mFilled) {
        return true;
    }
    mWatch.Pause();
    if (mRead >= kStreamBytes) {
        return false;
    }
    Fill();
    mWatch.Start();
    return true;
}

void ByteStream::CheckComplete() const {
    Check(mRead == kStreamBytes, std::to_string(mRead) + " bytes were read");
    Check(mIntact, "the bytes are not those that were sent");
}

double ByteStream::NanosecondsPerRead(std::size_t size) const {
    return mWatch.Nanoseconds() * static_cast<double>(size) / static_cast<double>(kStreamBytes);
}

IdleObserver::IdleObserver(int windowMillisec)
    : mWindowMillisec(windowMillisec), mThread(gettid()) {
    Check(pthread_getcpuclockid(pthread_self(), &mClock) == 0, "no CPU clock of the thread");
}

IdleFigures IdleObserver::Measure() const {
    std::this_thread::sleep_for(std::chrono::milliseconds(kSettleMillisec));
    const double wakeUps = WakeUps();
    const double cpu = CpuMicrosec();
    std::this_thread::sleep_for(std::chrono::milliseconds(mWindowMillisec));
    return {WakeUps() - wakeUps, CpuMicrosec() - cpu};
}

double IdleObserver::WakeUps() const {
    std::ifstream status("/proc/self/task/" + std::to_string(mThread) + "/status");
    const std::string key = "voluntary_ctxt_switches:";
    for (std::string line; std::getline(status, line);) {
        if (line.rfind(key, 0) == 0) {
            return std::stod(line.substr(key.size()));
        }
    }
    return -1;
}

double IdleObserver::CpuMicrosec() const {
    timespec time{};
    clock_gettime(mClock, &time);
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
}

void CheckIdleTimer(const IdleFigures& figures, std::uint64_t fired) {
    Check(fired >= 2, "the timer hardly fired");
    // It may have fired once outside of the window.
    Check(std::fabs(figures.wakeUps - static_cast<double>(fired)) <= 1,
          "the loop wakes up " + std::to_string(figures.wakeUps) + " times for " +
              std::to_string(fired) + " timers");
}

}  // namespace framework_bench
