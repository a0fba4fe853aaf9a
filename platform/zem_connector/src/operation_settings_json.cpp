#include "operation_settings_json.h"

#include <array>
#include <stdexcept>

#include "host_name.h"
#include "json_members.h"

namespace zem_connector::host {

namespace {

using nlohmann::json;

constexpr const char* kWhere = "file.operations";
constexpr std::array<const char*, 2> kVersionNames{"1.2", "1.3"};
constexpr std::array<const char*, 2> kProxyNames{"http", "socks5"};
/// A length is one byte in RFC 1929.
constexpr std::size_t kMaxCredentialSize = 255;
constexpr int kMaxPort = 65535;

std::string HostName(const json& member, const std::string& name) {
    auto text = member.get<std::string>();
    if (!IsHostName(text)) {
        throw std::runtime_error(name + " must be a host's name or address");
    }
    return text;
}

TlsSettings ReadTls(const json& object, const std::string& where,
                    std::vector<std::string>& warnings) {
    TlsSettings tls;
    JsonMembers members(object, where);
    members.Require("trustAnchors", [&](const json& member) {
        tls.trustAnchors = member.get<std::string>();
        if (tls.trustAnchors.rfind('/', 0) != 0) {
            throw std::runtime_error(members.Name("trustAnchors") + " must be an absolute path");
        }
    });
    members.Take("serverName", [&](const json& member) {
        tls.serverName = HostName(member, members.Name("serverName"));
    });
    members.TakeEnum("minimumVersion", kVersionNames, tls.minimumVersion);
    members.WarnOfRest(warnings);
    return tls;
}

/// Without control characters, for they would end a line of the proxy's protocol.
std::string Credential(const json& member, const std::string& name) {
    auto text = member.get<std::string>();
    bool usable = !text.empty() && text.size() <= kMaxCredentialSize;
    for (const char c : text) {
        usable = usable && static_cast<unsigned char>(c) >= ' ' && c != '\x7f';
    }
    if (!usable) {
        throw std::runtime_error(name + " must have 1 to 255 bytes and no control characters");
    }
    return text;
}

ProxySettings ReadProxy(const json& object, const std::string& where,
                        std::vector<std::string>& warnings) {
    ProxySettings proxy;
    JsonMembers members(object, where);
    members.RequireKey("type");
    members.TakeEnum("type", kProxyNames, proxy.type);
    members.Require(
        "host", [&](const json& member) { proxy.host = HostName(member, members.Name("host")); });
    members.Require("port", [&](const json& member) {
        if (!member.is_number_integer() || member < 1 || member > kMaxPort) {
            throw std::runtime_error(members.Name("port") + " must be a number from 1 to 65535");
        }
        proxy.port = member.get<unsigned short>();
    });
    members.Take("user", [&](const json& member) {
        proxy.user = Credential(member, members.Name("user"));
        // RFC 7617 has no way to write such a name.
        if (proxy.type == ProxyType::kHttp && proxy.user.find(':') != std::string::npos) {
            throw std::runtime_error(members.Name("user") + " must not hold a colon");
        }
        members.Require("password", [&](const json& password) {
            proxy.password = Credential(password, members.Name("password"));
        });
    });
    members.WarnOfRest(warnings);
    return proxy;
}

OperationSettings ReadOperation(const json& object, const std::string& where,
                                std::vector<std::string>& warnings) {
    OperationSettings settings;
    JsonMembers members(object, where);
    members.Require("tls", [&](const json& member) {
        if (!member.is_boolean() || member.get<bool>()) {
            settings.tls = ReadTls(member, members.Name("tls"), warnings);
        }
    });
    members.Take("proxy", [&](const json& member) {
        settings.proxy = ReadProxy(member, members.Name("proxy"), warnings);
    });
    members.WarnOfRest(warnings);
    return settings;
}

}  // namespace

std::map<std::string, OperationSettings> ReadOperations(const json& object,
                                                        std::vector<std::string>& warnings) {
    if (!object.is_object()) {
        throw std::runtime_error(std::string(kWhere) + " must be an object");
    }
    std::map<std::string, OperationSettings> operations;
    for (const auto& item : object.items()) {
        operations[item.key()] =
            ReadOperation(item.value(), std::string(kWhere) + "." + item.key(), warnings);
    }
    return operations;
}

json JsonOf(const OperationSettings& settings) {
    json result = {{"tls", false}};
    if (settings.tls) {
        const TlsSettings& tls = *settings.tls;
        result["tls"] = {
            {"trustAnchors", tls.trustAnchors},
            {"minimumVersion", kVersionNames.at(static_cast<std::size_t>(tls.minimumVersion))},
        };
        if (!tls.serverName.empty()) {
            result["tls"]["serverName"] = tls.serverName;
        }
    }
    if (settings.proxy) {
        const ProxySettings& proxy = *settings.proxy;
        result["proxy"] = {
            {"type", kProxyNames.at(static_cast<std::size_t>(proxy.type))},
            {"host", proxy.host},
            {"port", proxy.port},
        };
        if (!proxy.user.empty()) {
            result["proxy"]["user"] = proxy.user;
            result["proxy"]["password"] = proxy.password;
        }
    }
    return result;
}

}  // namespace zem_connector::host
