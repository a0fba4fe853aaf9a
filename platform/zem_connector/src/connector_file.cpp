#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <utility>

#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unistd.h>
#include <zem_connector_host/connector_file.h>

namespace zem_connector::host {

namespace {

using nlohmann::json;
using SCConnectionState = ZemServiceControllerCallbackIf::SCConnectionState;

constexpr std::int64_t kMaxTimeoutMs = std::int64_t{10} * 60 * 1000;
constexpr mode_t kFileMode = 0644;
/// More than the format needs; a text that is nothing but brackets must not cost anything.
constexpr int kMaxDepth = 8;

/// The index of a name is the value of the enumeration.
constexpr std::array<const char*, 4> kSessionNames{"idle", "starting", "started", "rejected"};
constexpr std::array<const char*, 4> kConnectionNames{"notAvailable", "disconnected", "onDemand",
                                                      "connected"};

/// Takes the members of one JSON object out by key; what nobody took is unknown.
class Members {
public:
    Members(const json& object, std::string where) : mWhere(std::move(where)) {
        if (!object.is_object()) {
            throw std::runtime_error(mWhere + " must be an object");
        }
        for (const auto& item : object.items()) {
            mMembers.emplace(item.key(), &item.value());
        }
    }

    void Take(const std::string& key, const std::function<void(const json&)>& read) {
        const auto found = mMembers.find(key);
        if (found == mMembers.end()) {
            return;
        }
        try {
            read(*found->second);
        } catch (const json::exception&) {
            throw std::runtime_error(Name(key) + " has the wrong type");
        }
        mMembers.erase(found);
    }

    template <typename Enum>
    void TakeEnum(const std::string& key, const std::array<const char*, 4>& names, Enum& value) {
        Take(key, [&](const json& member) {
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

    void TakeTimeout(const std::string& key, std::int64_t least, std::chrono::milliseconds& value) {
        Take(key, [&](const json& member) {
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

    void WarnOfRest(std::vector<std::string>& warnings) const {
        for (const auto& member : mMembers) {
            warnings.push_back("unknown key " + Name(member.first));
        }
    }

    std::string Name(const std::string& key) const { return mWhere + "." + key; }

private:
    std::string mWhere;
    std::map<std::string, const json*> mMembers;
};

void ReadTransactionTypes(const json& object, ConnectorFile& file,
                          std::vector<std::string>& warnings) {
    if (!object.is_object()) {
        throw std::runtime_error("file.transactionTypes must be an object");
    }
    for (const auto& item : object.items()) {
        Members members(item.value(), "file.transactionTypes." + item.key());
        TransactionType& type = file.transactionTypes[item.key()];
        members.Take("activated",
                     [&type](const json& member) { type.activated = member.get<bool>(); });
        members.TakeEnum("connectionState", kConnectionNames, type.connectionState);
        members.WarnOfRest(warnings);
    }
}

class TemporaryFile {
public:
    explicit TemporaryFile(const std::string& target)
        : mPath(target + ".XXXXXX"), mDescriptor(mkostemp(mPath.data(), O_CLOEXEC)) {}
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile() {
        const int error = errno;
        if (mDescriptor >= 0) {
            close(mDescriptor);
        }
        if (mDescriptor >= 0 && !mRenamed) {
            unlink(mPath.c_str());
        }
        errno = error;
    }

    bool Write(const std::string& text) {
        std::size_t written = 0;
        while (mDescriptor >= 0 && written < text.size()) {
            const ssize_t count = write(mDescriptor, text.data() + written, text.size() - written);
            if (count < 0 && errno != EINTR) {
                return false;
            }
            written += count > 0 ? static_cast<std::size_t>(count) : 0;
        }
        return mDescriptor >= 0 && fchmod(mDescriptor, kFileMode) == 0 && fsync(mDescriptor) == 0;
    }

    bool RenameTo(const std::string& target) {
        mRenamed = std::rename(mPath.c_str(), target.c_str()) == 0;
        return mRenamed;
    }

private:
    std::string mPath;
    int mDescriptor;
    bool mRenamed{false};
};

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
    const json root = {
        {"sessionStatus", kSessionNames.at(static_cast<std::size_t>(sessionStatus))},
        {"connectTimeoutMs", connectTimeout.count()},
        {"urlTimeoutMs", urlTimeout.count()},
        {"transactionTypes", types},
        {"invocationUrls", invocationUrls},
    };
    return root.dump(2, ' ', false, json::error_handler_t::replace) + "\n";
}

bool ConnectorFile::WriteAtomically(const std::string& path) const {
    TemporaryFile file(path);
    return file.Write(ToJson()) && file.RenameTo(path);
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
    Members members(root, "file");
    members.TakeEnum("sessionStatus", kSessionNames, result.sessionStatus);
    members.TakeTimeout("connectTimeoutMs", 1, result.connectTimeout);
    members.TakeTimeout("urlTimeoutMs", 0, result.urlTimeout);
    members.Take("transactionTypes",
                 [&](const json& object) { ReadTransactionTypes(object, result, warnings); });
    members.Take("invocationUrls", [&result](const json& object) {
        result.invocationUrls = object.get<std::map<std::string, std::string>>();
    });
    members.WarnOfRest(warnings);
    file = std::move(result);
}

}  // namespace zem_connector::host
