// Messages of service discovery: what stands behind the header.

#include <string>

#include <someip/wire/sd_message.h>

#include "fuzz/check.h"

namespace {

using fuzz::Check;
using someip::Message;
using someip::SdMessage;

constexpr std::size_t kEntrySize = 16;
/// What this library writes of an entry's options: one run of at most 15.
constexpr std::size_t kMaxRun = 15;

Message WithPayload(std::string_view bytes) {
    Message message = someip::ToMessage({}, 1);
    message.payload.assign(bytes.begin(), bytes.end());
    return message;
}

/// Whether the message can be written without loss.
bool IsWritable(const SdMessage& sd) {
    std::size_t options = 0;
    for (const auto& entry : sd.entries) {
        if (entry.refersToNothing || entry.endpoints.size() > kMaxRun) {
            return false;
        }
        options += entry.endpoints.size();
    }
    return options <= someip::kMaxSdItems;
}

void CheckParts(const SdMessage& sd, std::size_t size) {
    Check(sd.entries.size() * kEntrySize <= size, "each entry has its bytes");
    for (const auto& entry : sd.entries) {
        Check(entry.ttl <= someip::kTtlUntilReboot, "a time to live has 24 bits");
        Check(entry.counter <= 0x0F, "a counter has 4 bits");
        Check(entry.endpoints.size() <= 2 * kMaxRun, "an entry has two runs of options");
        Check(!entry.refersToNothing || entry.endpoints.size() <= kMaxRun,
              "a run that leads nowhere gives nothing");
    }
}

}  // namespace

void fuzz::TryInput(std::string_view input) {
    std::string problem;
    const auto sd = someip::ParseSdMessage(WithPayload(input), problem);
    Check(sd.has_value() == problem.empty(), "a problem and nothing else is a refusal");
    if (!sd) {
        return;
    }
    CheckParts(*sd, input.size());
    if (IsWritable(*sd)) {
        const auto again = someip::ParseSdMessage(someip::ToMessage(*sd, 1), problem);
        Check(again && again->entries == sd->entries && again->reboot == sd->reboot &&
                  again->unicast == sd->unicast,
              "a message survives being written and read");
    }
    for (const auto cut : fuzz::Cuts(input.size())) {
        Check(cut == input.size() ||
                  !someip::ParseSdMessage(WithPayload(input.substr(0, cut)), problem),
              "no beginning of a message is one");
    }
}
