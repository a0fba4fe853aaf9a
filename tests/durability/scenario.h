#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "certificate_zoo/certificate_zoo.h"
#include "client_store/client_store.h"
#include "faulty_vfs/faulty_vfs.h"

namespace kill_store {

/// The store operations by their numbers, then two of the facade.
using Scenario = std::size_t;

/// A whole pass: request, check and storing of the answer.
inline constexpr Scenario kPass = testing_support::kStoreOperations.size();
/// The facade deletes the accepted certificate.
inline constexpr Scenario kClear = kPass + 1;
inline constexpr Scenario kScenarios = kClear + 1;

const char* NameOf(Scenario scenario);

/// What a process that may die at any moment leaves for the others, in memory that they share.
struct Record {
    /// Of the store before the operation began.
    testing_support::Picture before{};
    /// What it must leave.
    testing_support::Picture expected{};
    bool isInstalling = false;
    bool isDone = false;
    bool hasFailed = false;
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
