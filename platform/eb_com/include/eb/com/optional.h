#pragma once

#include <optional>

namespace eb::com {

/// Member of a record that a sender may leave out.
template <typename T>
using optional = std::optional<T>;

}  // namespace eb::com
