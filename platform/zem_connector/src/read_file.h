#pragma once

#include <cstddef>
#include <string>

namespace zem_connector {

/// A regular file's content, up to `limit` + 1 bytes, so that the caller can detect a file above
/// the limit. Never blocks on a pipe. Throws std::runtime_error with the cause.
std::string ReadFile(const std::string& path, std::size_t limit);

}  // namespace zem_connector
