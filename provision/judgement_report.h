#pragma once

#include <string>
#include <vector>

#include "provision/store_judge.h"

namespace provision {

// The answers of `verify` and `status`, as text and as JSON (docs/provisioning.md has the members).

/// The highest of the entries' standings.
Standing StandingOf(const std::vector<EntryJudgement>& entries);

/// One line an entry.
std::string Describe(const std::vector<EntryJudgement>& entries);
std::string ToJson(const std::vector<EntryJudgement>& entries, TimePoint at);

/// One line.
std::string Describe(const UnitStatus& status);
std::string ToJson(const UnitStatus& status, TimePoint at);

}  // namespace provision
