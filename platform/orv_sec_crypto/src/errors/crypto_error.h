#pragma once

#include <stdexcept>
#include <string>
#include <utility>

#include <orv/sec/crypto/common/crypto_result_code.h>
#include <orv/sec/crypto/common/error_or_object_result.h>

namespace orv::sec::crypto {

template <typename Object>
using CryptoResult = common::ErrorOrObjectResult<common::CryptoResultCode, Object>;

/// The exception for failures inside the library. It never crosses a public interface: every
/// operation there runs its work through `RunOperation` or `RunForResult`.
class CryptoError : public std::runtime_error {
public:
    CryptoError(common::CryptoResultCode code, const std::string& message)
        : std::runtime_error(message), mCode(code) {}

    common::CryptoResultCode Code() const { return mCode; }

private:
    common::CryptoResultCode mCode;
};

/// Logs a failure: at error level if the store or the back end failed, which the operator has to
/// know; at debug level if the caller's request was refused or nothing was there.
void ReportError(const char* operation, const CryptoError& error);

/// A `kStorageError` that names the file, what was tried with it and the reason in `errno`.
CryptoError SystemError(const std::string& path, const std::string& what);

/// A `kFailure` that names the OpenSSL operation and its reason, and empties OpenSSL's queue.
CryptoError OpenSslError(const std::string& what);

/// Empties the calling thread's OpenSSL error queue after a failure that was expected.
void ForgetOpenSslErrors();

template <typename Work>
common::CryptoResultCode RunOperation(const char* operation, Work work) {
    try {
        work();
        return common::CryptoResultCode::kSuccess;
    } catch (const CryptoError& error) {
        ReportError(operation, error);
        return error.Code();
    }
}

template <typename Object, typename Work>
CryptoResult<Object> RunForResult(const char* operation, Work work) {
    try {
        return CryptoResult<Object>::Success(work());
    } catch (const CryptoError& error) {
        ReportError(operation, error);
        return CryptoResult<Object>::Error(error.Code(), error.what());
    }
}

}  // namespace orv::sec::crypto
