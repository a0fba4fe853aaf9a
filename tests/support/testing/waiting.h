#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace testing_support {

/// Keeps a broken test from hanging. No test that passes waits for its end.
inline constexpr std::chrono::seconds kHangGuard{30};

/// Lets the hang guard end each read from the socket, and each wait for a connection.
void GuardReads(int socket);

/// Whether the condition comes to hold, of which nothing else tells.
template <typename Condition>
bool WaitUntil(const Condition& condition) {
    const auto end = std::chrono::steady_clock::now() + kHangGuard;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

/// What one thread does and others wait for. Any thread.
class Gate {
public:
    void Open();
    /// Waits until it is open; false, and a failure of the test, if it stays shut.
    bool Pass();
    /// How often it was opened.
    int Openings() const;

private:
    mutable std::mutex mMutex;
    std::condition_variable mOpened;
    int mOpenings{0};
};

}  // namespace testing_support
