#pragma once

#include <cstdint>
#include <string>

#include <sys/types.h>

namespace vehicle_bench {

/// Nanoseconds of a clock that all processes share.
std::int64_t NowNanosec();

/// What the far end may be told to write.
enum class Message : char { kClamp = 'c', kImmobilizer = 'i', kAlert = 'a', kBare = 'b' };

/// The vehicle in a process of its own: the service access layer and the alert socket on bare
/// sockets, and one end of a socket pair for the bare receiver. It writes what it is told to and
/// notes the time right before. To be made before the process has a second thread.
class FarEnd {
public:
    /// The sockets are `directory`/access.sock and `directory`/sockstlsalertifsocket.
    explicit FarEnd(const std::string& directory);
    /// Ends the process.
    ~FarEnd();
    FarEnd(const FarEnd&) = delete;
    FarEnd& operator=(const FarEnd&) = delete;

    void Write(Message message) const;

    /// When the far end began the last write.
    std::int64_t WrittenAt() const;

    /// The near end of the socket pair; stays owned by this object.
    int BareSocket() const { return mBareSocket; }

private:
    pid_t mProcess;
    int mCommands;
    int mBareSocket;
    void* mShared;
};

}  // namespace vehicle_bench
