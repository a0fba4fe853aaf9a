#pragma once

#include <optional>

namespace lumoutil {

/// A value of a record that may be absent.
template <typename T>
using Optional = std::optional<T>;

}  // namespace lumoutil
