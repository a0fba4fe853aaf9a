#pragma once

#include <string>

namespace testing_support {

/// The messages of the backend link in words, put in the place of the real ones by the linker.
///
/// A request is its container. A certificate response is "certificate " and the certificate, an
/// error response "error " and its text; all else is broken. With this container there is no
/// request.

inline const std::string kNoRequest = "container that does not fit";

}  // namespace testing_support
