#include "timeline/timeline_event.h"

#include <array>
#include <cstdio>
#include <ctime>

#include <nlohmann/json.hpp>

namespace timeline {

namespace {

struct OutcomeName {
    /// In JSON.
    const char* key;
    const char* text;
    bool bad;
};

const OutcomeName& NameOf(PassOutcome outcome) {
    static constexpr std::array<OutcomeName, 6> kNames{
        {{"none", "no update needed", false},
         {"stored", "certificate stored", false},
         {"failed", "failed", true},
         {"cut", "cut off", true},
         {"running", "still running at the end of the log", false},
         {"unknown", "ended, the log does not say how", false}}};
    return kNames.at(static_cast<std::size_t>(outcome));
}

}  // namespace

std::string ToText(const Moment& moment) {
    if (moment.base == TimeBase::kNone) {
        return "(no time)";
    }
    const auto milliseconds = static_cast<int>(((moment.time % 1000) + 1000) % 1000);
    const std::int64_t seconds = (moment.time - milliseconds) / 1000;
    std::array<char, 64> text{};
    if (moment.base == TimeBase::kBoot) {
        std::snprintf(text.data(), text.size(), "[%lld.%03d s after start]",
                      static_cast<long long>(seconds), milliseconds);
        return text.data();
    }
    const std::time_t clock = seconds;
    std::tm parts{};
    gmtime_r(&clock, &parts);
    std::array<char, 32> date{};
    std::strftime(date.data(), date.size(), "%Y-%m-%dT%H:%M:%S", &parts);
    std::snprintf(text.data(), text.size(), "%s.%03dZ", date.data(), milliseconds);
    return text.data();
}

std::string OutcomeText(const Pass& pass) {
    std::string text = NameOf(pass.outcome).text;
    if (pass.outcomeDetail.empty()) {
        return text;
    }
    return text + (pass.outcome == PassOutcome::kRunning ? ", " : ": ") + pass.outcomeDetail;
}

bool IsBad(PassOutcome outcome) {
    return NameOf(outcome).bad;
}

void to_json(nlohmann::json& json, const Moment& moment) {
    json = {{"axis", moment.axis}, {"clock", ToText(moment)}};
}

void to_json(nlohmann::json& json, const Pass& pass) {
    json = {{"number", pass.number},
            {"begin", pass.begin},
            {"end", pass.end},
            {"beginSeen", pass.beginSeen},
            {"clockJumped", pass.clockJumped},
            {"trigger", pass.trigger},
            {"decision", pass.decision},
            {"attempts", pass.attempts},
            {"causes", pass.causes},
            {"waits", pass.waits},
            {"outcome", NameOf(pass.outcome).key},
            {"text", OutcomeText(pass)},
            {"bad", IsBad(pass.outcome)}};
}

void to_json(nlohmann::json& json, const Event& event) {
    static constexpr std::array<const char*, 7> kKinds{"state", "mark",      "process", "wait",
                                                       "jump",  "passBegin", "passEnd"};
    static constexpr std::array<const char*, 5> kTones{"plain", "trigger", "good", "bad", "error"};
    json = {{"kind", kKinds.at(static_cast<std::size_t>(event.kind))},
            {"at", event.moment.axis},
            {"clock", ToText(event.moment)},
            {"lane", event.lane},
            {"text", event.text}};
    if (event.kind == EventKind::kMark) {
        json["tone"] = kTones.at(static_cast<std::size_t>(event.tone));
    }
    if (event.length != 0) {
        json["length"] = event.length;
    }
    if (event.pass) {
        json["pass"] = *event.pass;
    }
}

void to_json(nlohmann::json& json, const LineCounts& counts) {
    json = {{"entries", counts.entries},     {"continuations", counts.continuations},
            {"truncated", counts.truncated}, {"interleaved", counts.interleaved},
            {"foreign", counts.foreign},     {"detailed", counts.detailed},
            {"dropped", counts.dropped}};
}

}  // namespace timeline
