#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "certificate_zoo/certificate_zoo.h"
#include "faulty_vfs/faulty_vfs.h"

namespace kill_store {

enum class Scenario : std::uint8_t {
    kGenerateKeyPair,
    kStoreCertificateForKeyPair,
    kMoveKeyPair,
    kDeleteKeyPair,
    /// A whole pass of the facade: request, check and storing of the answer.
    kPass,
    /// The facade deletes the accepted certificate.
    kClear,
};

inline constexpr std::array<Scenario, 6> kScenarios{Scenario::kGenerateKeyPair,
                                                    Scenario::kStoreCertificateForKeyPair,
                                                    Scenario::kMoveKeyPair,
                                                    Scenario::kDeleteKeyPair,
                                                    Scenario::kPass,
                                                    Scenario::kClear};

const char* NameOf(Scenario scenario);

/// One key pair as the store has it; digests of its public key and its chain.
struct Slot {
    bool isPresent = false;
    std::size_t key = 0;
    /// 0 without a chain.
    std::size_t chain = 0;

    bool operator==(const Slot& other) const {
        return isPresent == other.isPresent && key == other.key && chain == other.chain;
    }
};

struct Picture {
    Slot accepted;
    Slot pending;

    bool operator==(const Picture& other) const {
        return accepted == other.accepted && pending == other.pending;
    }
};

/// What a process that may die at any moment leaves for the others, in memory that they share.
struct Record {
    /// Of the store before the operation began.
    Picture before;
    bool isInstalling = false;
    bool isDone = false;
    bool hasFailed = false;
    /// Of the chain that is to be stored.
    std::size_t newChain = 0;
    int calls = 0;
    std::int64_t nanoseconds = 0;
    /// What the inspection found; "sound" if the store is as it must be.
    std::array<char, 512> verdict{};
};

/// What befalls the operation.
struct Blow {
    store_faults::FaultPlan plan;
    /// SIGKILL so long after the operation's start; 0 for never.
    std::int64_t nanoseconds = 0;
};

/// Makes a store in the directory that ORV_CRYPTO_DIR names, with the root of `backend`, and one
/// pass's certificate.
void Provision(const testing_support::Family& backend);

/// Brings the store to where the scenario begins, and plays it. To be run in a process of its own.
void Play(Scenario scenario, const Blow& blow, const testing_support::Family& backend,
          Record& record);

/// Opens the store as a service that starts does: what was interrupted is done or undone now. To be
/// run in a process of its own.
void Start(const Blow& blow);

/// Looks at the store that `Play` has left, and enrols. To be run in a process of its own.
void Inspect(Scenario scenario, const testing_support::Family& backend, Record& record);

}  // namespace kill_store
