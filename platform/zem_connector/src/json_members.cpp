#include "json_members.h"

#include <utility>

namespace zem_connector::host {

namespace {

constexpr std::int64_t kMaxTimeoutMs = std::int64_t{10} * 60 * 1000;

}  // namespace

JsonMembers::JsonMembers(const Json& object, std::string where) : mWhere(std::move(where)) {
    if (!object.is_object()) {
        throw std::runtime_error(mWhere + " must be an object");
    }
    for (const auto& item : object.items()) {
        mMembers.emplace(item.key(), &item.value());
    }
}

void JsonMembers::Take(const std::string& key, const std::function<void(const Json&)>& read) {
    const auto found = mMembers.find(key);
    if (found == mMembers.end()) {
        return;
    }
    try {
        read(*found->second);
    } catch (const Json::exception&) {
        throw std::runtime_error(Name(key) + " has the wrong type");
    }
    mMembers.erase(found);
}

void JsonMembers::RequireKey(const std::string& key) const {
    if (mMembers.count(key) == 0) {
        throw std::runtime_error(Name(key) + " is missing");
    }
}

void JsonMembers::Require(const std::string& key, const std::function<void(const Json&)>& read) {
    RequireKey(key);
    Take(key, read);
}

void JsonMembers::TakeTimeout(const std::string& key, std::int64_t least,
                              std::chrono::milliseconds& value) {
    Take(key, [&](const Json& member) {
        const bool inRange =
            member.is_number_integer() && member >= least && member <= kMaxTimeoutMs;
        if (!inRange) {
            throw std::runtime_error(Name(key) + " must be a number of milliseconds from " +
                                     std::to_string(least) + " to " +
                                     std::to_string(kMaxTimeoutMs));
        }
        value = std::chrono::milliseconds(member.get<std::int64_t>());
    });
}

void JsonMembers::WarnOfRest(std::vector<std::string>& warnings) const {
    for (const auto& member : mMembers) {
        warnings.push_back("unknown key " + Name(member.first));
    }
}

}  // namespace zem_connector::host
