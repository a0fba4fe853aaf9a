#pragma once

#include <cstdint>

/// A SQLite file system that lets its caller down at a chosen moment, on top of the real one.
///
/// What counts are the calls that change a file: write, truncate, sync, delete and the opening of a
/// file that may be created. A process has one such file system, for one thread.
namespace store_faults {

enum class Fault : std::uint8_t {
    kNone,
    /// SIGKILL at the call, half-way through it if it is a write.
    kKill,
    /// SIGKILL at the call, and what was not synced by then is, sector by sector, there or not.
    kPowerCut,
    /// The call fails, half-way through it if it is a write; the next ones succeed.
    kError,
    /// From the call on no write succeeds.
    kDiskFull,
    /// From the call on the file system can only be read.
    kReadOnly,
};

struct FaultPlan {
    Fault fault = Fault::kNone;
    /// Counted from 1, from `Arm` on.
    int call = 0;
    /// Of what is left to chance.
    std::uint32_t seed = 0;
};

/// Makes it the file system of all databases that are opened from now on.
void Install();

/// Takes the files for synced as they are.
void Arm(const FaultPlan& plan);

/// What a `kPowerCut` does, now: for what is durable though no call comes any more.
[[noreturn]] void CutPower();

/// Ends the fault; how many calls there were since `Arm`.
int Disarm();

}  // namespace store_faults
