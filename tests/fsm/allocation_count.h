#pragma once

#include <cstddef>

namespace testing_support {

/// How often the calling thread has allocated; a program that asks has its `operator new` replaced.
std::size_t AllocationCount();

}  // namespace testing_support
