#include <algorithm>
#include <array>
#include <cstring>
#include <stdexcept>
#include <utility>

#include <nlohmann/json.hpp>
#include <sys/types.h>

#include <posix/atomic_file.h>
#include <zem_connector_host/connector_file.h>

#include "json_members.h"
#include "operation_settings_json.h"

namespace zem_connector::host {

namespace {

using nlohmann::json;
using SCConnectionState = ZemServiceControllerCallbackIf::SCConnectionState;

constexpr mode_t kFileMode = 0644;
constexpr mode_t kSecretFileMode = 0600;
/// More than the format needs; a text that is nothing but brackets must not cost anything.
constexpr int kMaxDepth = 8;

/// The index of a name is the value of the enumeration.
constexpr std::array<const char*, 4> kSessionNames{"idle", "starting", "started", "rejected"};
constexpr std::array<const char*, 4> kConnectionNames{"notAvailable", "disconnected", "onDemand",
                                                      "connected"};

void ReadTransactionTypes(const json& object, ConnectorFile& file,
                          std::vector<std::string>& warnings) {
    if (!object.is_object()) {
        throw std::runtime_error("file.transactionTypes must be an object");
    }
    for (const auto& item : object.items()) {
        JsonMembers members(item.value(), "file.transactionTypes." + item.key());
        TransactionType& type = file.transactionTypes[item.key()];
        members.Take("activated",
                     [&type](const json& member) { type.activated = member.get<bool>(); });
        members.TakeEnum("connectionState", kConnectionNames, type.connectionState);
        members.WarnOfRest(warnings);
    }
}

bool HoldsPassword(const ConnectorFile& file) {
    return std::any_of(file.operations.begin(), file.operations.end(), [](const auto& operation) {
        const auto& proxy = operation.second.proxy;
        return proxy && !proxy->password.empty();
    });
}

}  // namespace

std::string ConnectorFile::ToJson() const {
    json types = json::object();
    for (const auto& [id, type] : transactionTypes) {
        types[id] = {
            {"activated", type.activated},
            {"connectionState",
             kConnectionNames.at(static_cast<std::size_t>(type.connectionState))},
        };
    }
    json entries = json::object();
    for (const auto& [id, settings] : operations) {
        entries[id] = JsonOf(settings);
    }
    const json root = {
        {"sessionStatus", kSessionNames.at(static_cast<std::size_t>(sessionStatus))},
        {"connectTimeoutMs", connectTimeout.count()},
        {"urlTimeoutMs", urlTimeout.count()},
        {"closeTimeoutMs", closeTimeout.count()},
        {"transactionTypes", types},
        {"invocationUrls", invocationUrls},
        {"operations", entries},
    };
    return root.dump(2, ' ', false, json::error_handler_t::replace) + "\n";
}

std::vector<std::string> ConnectorFile::UnprotectedHttpsOperations() const {
    std::vector<std::string> result;
    for (const auto& [id, url] : invocationUrls) {
        const auto entry = operations.find(id);
        const bool isProtected = entry != operations.end() && entry->second.tls;
        if (url.rfind("https:", 0) == 0 && !isProtected) {
            result.push_back(id);
        }
    }
    return result;
}

void ConnectorFile::WriteAtomically(const std::string& path) const {
    posix::AtomicFileSettings settings;
    settings.mode = HoldsPassword(*this) ? kSecretFileMode : kFileMode;
    posix::WriteFileAtomically(path, ToJson(), settings);
}

void ParseConnectorFile(const std::string& text, ConnectorFile& file,
                        std::vector<std::string>& warnings) {
    if (text.size() > ConnectorFile::kMaxSize) {
        throw std::runtime_error("longer than " + std::to_string(ConnectorFile::kMaxSize) +
                                 " bytes");
    }
    const auto checkDepth = [](int depth, json::parse_event_t /*event*/, json& /*value*/) {
        if (depth > kMaxDepth) {
            throw std::runtime_error("nested too deeply");
        }
        return true;
    };
    json root;
    try {
        root = json::parse(text, checkDepth);
    } catch (const json::parse_error& error) {
        throw std::runtime_error("no JSON, error near byte " + std::to_string(error.byte));
    } catch (const json::exception& error) {
        // A number that no type holds, for one.
        throw std::runtime_error(std::string("no usable JSON: ") + error.what());
    }
    ConnectorFile result;
    JsonMembers members(root, "file");
    members.TakeEnum("sessionStatus", kSessionNames, result.sessionStatus);
    members.TakeTimeout("connectTimeoutMs", 1, result.connectTimeout);
    members.TakeTimeout("urlTimeoutMs", 0, result.urlTimeout);
    members.TakeTimeout("closeTimeoutMs", 0, result.closeTimeout);
    members.Take("transactionTypes",
                 [&](const json& object) { ReadTransactionTypes(object, result, warnings); });
    members.Take("invocationUrls", [&result](const json& object) {
        result.invocationUrls = object.get<std::map<std::string, std::string>>();
    });
    members.Take("operations",
                 [&](const json& object) { result.operations = ReadOperations(object, warnings); });
    members.WarnOfRest(warnings);
    file = std::move(result);
}

}  // namespace zem_connector::host
