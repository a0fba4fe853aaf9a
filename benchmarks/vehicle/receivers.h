#pragma once

#include <functional>
#include <memory>

#include "benchmarks/vehicle/far_end.h"

namespace vehicle_bench {

/// Takes what the far end writes to a loop on the calling thread.
class Receiver {
public:
    Receiver() = default;
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;
    virtual ~Receiver() = default;

    /// Runs the loop until `count` events have come; `delivered` is called for each in the loop.
    virtual void Receive(int count, const std::function<void()>& delivered) = 0;
};

/// A vehicle input and the dispatcher, connected and with nothing due.
std::unique_ptr<Receiver> MakeClampReceiver();
std::unique_ptr<Receiver> MakeImmobilizerReceiver();
std::unique_ptr<Receiver> MakeAlertReceiver();

/// A thread that blocks in a read, a pipe and a loop on `poll`.
std::unique_ptr<Receiver> MakeBareReceiver(int socket);

}  // namespace vehicle_bench
