#pragma once

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include <orv/sec/crypto/common/error_or_object_result.h>
#include <orv/sec/crypto/operation/i_trust_store_manager.h>

#include "certificates/library_values.h"
#include "logging/qel_log_entry.h"
#include "logging/qel_logging.h"

namespace vintrel {

// From the results of the crypto library to their objects. What fails is logged as the name of the
// operation, a text and, where the text asks for it, the decimal code. The functions may be called
// by any thread.

enum class FailureLevel { kError, kInfo };

template <typename Code>
void LogFailure(const char* operation, const char* text, Code code,
                FailureLevel level = FailureLevel::kError) {
    if (level == FailureLevel::kInfo) {
        qel_logging::QELLogging::LogInfo(operation, text, CodeText(code));
        return;
    }
    qel_logging::QELLogging::LogError(operation, text, CodeText(code));
}

/// The value in a result, or none after a failure, which has been logged.
template <typename Code, typename Value>
std::optional<Value> TakeValue(orv::sec::crypto::common::ErrorOrObjectResult<Code, Value> result,
                               const char* operation, const char* failedText,
                               FailureLevel level = FailureLevel::kError) {
    if (!result.IsSuccess()) {
        LogFailure(operation, failedText, result.GetCode(), level);
        return std::nullopt;
    }
    return std::move(result).GetObject();
}

/// The object in a result, or null after a failure, which has been logged; so has a null object in
/// a success.
template <typename Code, typename Object>
std::shared_ptr<Object> TakeObject(
    orv::sec::crypto::common::ErrorOrObjectResult<Code, std::shared_ptr<Object>> result,
    const char* operation, const char* failedText, const char* nullText) {
    if (!result.IsSuccess()) {
        LogFailure(operation, failedText, result.GetCode());
        return nullptr;
    }
    auto object = std::move(result).GetObject();
    if (!object) {
        qel_logging::QELLogging::LogError(operation, nullText);
    }
    return object;
}

/// The value in a result; a failure throws `std::runtime_error` with the text and logs nothing.
template <typename Code, typename Value>
Value RequireValue(orv::sec::crypto::common::ErrorOrObjectResult<Code, Value> result,
                   const char* failedText) {
    if (!result.IsSuccess()) {
        throw std::runtime_error(failedText);
    }
    return std::move(result).GetObject();
}

/// As above, and a null object throws, too.
template <typename Code, typename Object>
std::shared_ptr<Object> RequireObject(
    orv::sec::crypto::common::ErrorOrObjectResult<Code, std::shared_ptr<Object>> result,
    const char* failedText, const char* nullText) {
    auto object = RequireValue(std::move(result), failedText);
    if (!object) {
        throw std::runtime_error(nullText);
    }
    return object;
}

/// The trust store of this name, which is made where there is none. A failure is that of making it.
inline auto FindOrCreateTrustStore(orv::sec::crypto::operation::ITrustStoreManager& manager,
                                   const std::string& name) {
    auto result = manager.lookupTrustStore(name);
    if (!result.IsSuccess()) {
        result = manager.createTrustStore(name);
    }
    return result;
}

}  // namespace vintrel
