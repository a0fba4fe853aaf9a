#pragma once

#include <string_view>

namespace posix {

/// Writes all of the bytes to a blocking descriptor. False, with `errno` set, if that failed; some
/// of the bytes may be written then.
bool WriteAll(int fd, std::string_view bytes);

}  // namespace posix
