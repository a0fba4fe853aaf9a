#pragma once

#include <cstddef>
#include <string>

namespace zem_connector {

/// A regular file's content, at most `limit` bytes and one more, so that what is longer is seen to
/// be. Never waits for a writer. Throws std::runtime_error with the cause.
std::string ReadFile(const std::string& path, std::size_t limit);

}  // namespace zem_connector
