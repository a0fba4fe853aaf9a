#pragma once

#include <cstdint>

namespace orv::tee {

/// The result of the operations that change the client store.
enum class MockTeeError : std::int32_t {
    kSuccess = 0,
    /// An empty argument, or a call that the crypto library calls invalid.
    kInvalidCall = 3,
    /// An invalid id, or nothing stored under it.
    kNotFound = 4,
    kFailure = 5,
};

}  // namespace orv::tee
