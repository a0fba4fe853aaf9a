#pragma once

#include <cstdint>

namespace orv::sec::crypto::common {

/// The result of a call of the library. One byte; callers must treat a value that is not listed
/// here as a failure.
enum class CryptoResultCode : std::uint8_t {
    kSuccess = 0,
    /// A failure without a closer description, e.g. of the cryptographic back end.
    kFailure = 1,
    /// The key or the store may not be used in this way.
    kAccessDenied = 2,
    /// The caller's mistake: an argument is empty or null, or a handle of another store.
    kInvalidArgument = 3,
    /// There is nothing under this id or name.
    kNotFound = 4,
    /// The store could not be read or written; what was there before is still there.
    kStorageError = 5,
    /// The caller's mistake: a selector that the library does not know.
    kUnsupported = 6,
    /// The caller's mistake: bytes that are not in the expected format.
    kInvalidFormat = 7,
    /// A signature or certificate was examined and does not verify.
    kVerificationFailed = 8,
    /// The caller's mistake: key and certificate don't belong together, or a key of a wrong type.
    kKeyMismatch = 9,
    /// The caller's mistake: the library is not initialised, or was cleaned up already.
    kInvalidState = 10,
    /// There is something under this id or name already.
    kAlreadyExists = 11,
    /// What is stored does not pass its integrity check.
    kIntegrityError = 12,
    /// No memory, or no random numbers.
    kOutOfResources = 13,
    /// The caller's mistake: an argument is longer than the library takes.
    kTooLarge = 14,
};

}  // namespace orv::sec::crypto::common
