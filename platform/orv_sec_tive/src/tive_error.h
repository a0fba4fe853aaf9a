#pragma once

#include <stdexcept>
#include <string>

#include <orv/sec/tive/tive_result_code.h>

namespace orv::sec::tive {

/// A failure inside the library, on its way to the result that the caller gets.
class TiveError : public std::runtime_error {
public:
    TiveError(TIVEResultCode code, const std::string& message)
        : std::runtime_error(message), mCode(code) {}

    TIVEResultCode Code() const { return mCode; }

private:
    TIVEResultCode mCode;
};

}  // namespace orv::sec::tive
