#pragma once

#include <cstdint>
#include <string>
#include <utility>

namespace orv::sec::crypto::common {

/// The outcome of an operation that yields an object. `Code` is a one-byte enumeration whose 0
/// means success.
///
/// The result is a success only when the error flag and the code both are zero; a set flag with
/// the code 0 is a failure without a closer description, and so is a code without the flag. A
/// success says nothing about the object: a pointer in it may be null.
template <typename Code, typename Object>
class [[nodiscard]] ErrorOrObjectResult {
    static_assert(sizeof(Code) == 1, "the code is one byte");

public:
    ErrorOrObjectResult(std::uint8_t errorFlag, Code code, std::string message, Object object)
        : mErrorFlag(errorFlag),
          mCode(code),
          mMessage(std::move(message)),
          mObject(std::move(object)) {}

    static ErrorOrObjectResult Success(Object object) {
        return ErrorOrObjectResult(0, Code{}, std::string(), std::move(object));
    }

    /// `message` is for a person who debugs; no program may depend on it.
    static ErrorOrObjectResult Error(Code code, std::string message = std::string()) {
        return ErrorOrObjectResult(1, code, std::move(message), Object{});
    }

    bool IsSuccess() const { return mErrorFlag == 0 && static_cast<std::uint8_t>(mCode) == 0; }
    std::uint8_t GetErrorFlag() const { return mErrorFlag; }
    Code GetCode() const { return mCode; }
    const std::string& GetMessage() const { return mMessage; }

    /// The object; value-initialised when the result comes from `Error`.
    const Object& GetObject() const& { return mObject; }
    Object GetObject() && { return std::move(mObject); }

private:
    std::uint8_t mErrorFlag;
    Code mCode;
    std::string mMessage;
    Object mObject;
};

}  // namespace orv::sec::crypto::common
