#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace zem_connector::host {

/// Reads the members of one JSON object by key and keeps track of the keys that were not read.
///
/// Throws std::runtime_error with a text for the log on a value of the wrong type or out of range.
class JsonMembers {
public:
    using Json = nlohmann::json;

    /// `where` is the object's name in messages. The object must outlive this one.
    JsonMembers(const Json& object, std::string where);

    /// Calls `read` if the key is there.
    void Take(const std::string& key, const std::function<void(const Json&)>& read);
    /// Throws if the key is missing.
    void RequireKey(const std::string& key) const;
    /// The same, then as `Take`.
    void Require(const std::string& key, const std::function<void(const Json&)>& read);

    /// The index of a name is the value of the enumeration.
    template <typename Enum, std::size_t Size>
    void TakeEnum(const std::string& key, const std::array<const char*, Size>& names, Enum& value) {
        Take(key, [&](const Json& member) {
            const auto& name = member.get_ref<const std::string&>();
            for (std::size_t i = 0; i < names.size(); ++i) {
                if (name == names.at(i)) {
                    value = static_cast<Enum>(i);
                    return;
                }
            }
            throw std::runtime_error(Name(key) + " is unknown: " + name);
        });
    }

    /// Milliseconds, from `least` to 10 minutes.
    void TakeTimeout(const std::string& key, std::int64_t least, std::chrono::milliseconds& value);

    /// Adds a warning for each key that was not read.
    void WarnOfRest(std::vector<std::string>& warnings) const;

    std::string Name(const std::string& key) const { return mWhere + "." + key; }

private:
    std::string mWhere;
    std::map<std::string, const Json*> mMembers;
};

}  // namespace zem_connector::host
