#include "simulator/vehicle/options.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>
#include <memory>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>
#include <strings.h>

namespace simulator::vehicle {

namespace {

using zem_connector::SessionStatus;
using zem_connector::host::OperationSettings;
using zem_connector::host::ProxySettings;
using zem_connector::host::ProxyType;
using zem_connector::host::TlsSettings;

constexpr std::array<std::pair<const char*, SessionStatus>, 4> kSessions{
    {{"idle", SessionStatus::kIdle},
     {"starting", SessionStatus::kStarting},
     {"started", SessionStatus::kStarted},
     {"rejected", SessionStatus::kRejected}}};

constexpr std::array<std::pair<const char*, ConnectionState>, 4> kConnections{
    {{"notAvailable", ConnectionState::kNotAvailable},
     {"disconnected", ConnectionState::kDisconnected},
     {"onDemand", ConnectionState::kOnDemand},
     {"connected", ConnectionState::kConnected}}};

constexpr std::array<std::pair<const char*, ProxyType>, 2> kProxyTypes{
    {{"http", ProxyType::kHttp}, {"socks5", ProxyType::kSocks5}}};

template <typename Table>
auto Find(const Table& table, const std::string& text)
    -> std::optional<typename Table::value_type::second_type> {
    const auto entry = std::find_if(table.begin(), table.end(), [&text](const auto& known) {
        return ::strcasecmp(text.c_str(), known.first) == 0;
    });
    if (entry == table.end()) {
        return std::nullopt;
    }
    return entry->second;
}

template <typename Table, typename Value>
const char* Name(const Table& table, Value value) {
    const auto entry = std::find_if(table.begin(), table.end(),
                                    [value](const auto& known) { return value == known.second; });
    return entry == table.end() ? "unknown" : entry->first;
}

template <typename Table>
CLI::Validator OneOf(const Table& table) {
    std::vector<std::string> names;
    names.reserve(table.size());
    for (const auto& known : table) {
        names.emplace_back(known.first);
    }
    return CLI::IsMember(std::move(names), CLI::ignore_case);
}

/// An option for a path whose default is below the root.
struct UnitPath {
    const char* option;
    std::string Options::*field;
    const char* path;
    const char* help;
};

constexpr std::array<UnitPath, 6> kPaths{{
    {"--client-config", &Options::clientConfigPath,
     "/var/run/qel/config/wexa-client/ClientConfig.json",
     "configuration of the service access layer, written at start"},
    {"--service-socket", &Options::serviceSocketPath, "/var/run/qel/wexa-client/services.sock",
     "socket of the service access layer"},
    {"--alert-socket", &Options::alertSocketPath,
     "/var/run/adaptive/qel/tarvo-hesk/socks-rux/sockstlsalertifsocket", "TLS alert socket"},
    {"--connector-file", &Options::connectorPath,
     "/var/run/qel/config/zem-connector/ZemConnector.json",
     "file of the connector library, written at start and at each change"},
    {"--deployment-file", &Options::deploymentPath, "/var/run/qel/config/someip/Deployment.json",
     "SOME/IP deployment, written at start"},
    {"--control", &Options::controlPath, "/var/run/qel/simulator/vehicle-control.sock",
     "control socket"},
}};

/// Parses TYPE://HOST:PORT; nothing for any other text.
std::optional<ProxySettings> ParseProxy(const std::string& text) {
    const auto typeEnd = text.find("://");
    const auto hostEnd = text.rfind(':');
    if (typeEnd == std::string::npos || hostEnd < typeEnd + 4) {
        return std::nullopt;
    }
    const auto type = Find(kProxyTypes, text.substr(0, typeEnd));
    ProxySettings proxy;
    const char* const end = text.data() + text.size();
    const auto port = std::from_chars(text.data() + hostEnd + 1, end, proxy.port);
    if (!type || port.ec != std::errc() || port.ptr != end || proxy.port == 0) {
        return std::nullopt;
    }
    proxy.type = *type;
    proxy.host = text.substr(typeEnd + 3, hostEnd - typeEnd - 3);
    return proxy;
}

/// Adds the options for the page, which starts the service and so must run inside the unit.
void AddPageOptions(CLI::App& app, Options& options) {
    auto* page = app.add_flag("--page", options.servesPage,
                              "serve a page on 127.0.0.1 that drives the unit and shows what it "
                              "does; its address is printed");
    page->excludes("--root");
    app.add_option("--page-port", options.pagePort, "TCP port of the page, 0 for any free one")
        ->needs(page);
    app.add_option("--page-backend", options.pageBackend,
                   "control socket of the unit's backend simulator, for the page")
        ->needs(page);
    app.add_option("--page-journal", options.pageJournal,
                   "journal of the unit's backend simulator, for the page")
        ->needs(page);
}

/// Adds the options for the sockets between unit and backend.
void AddSocketOptions(CLI::App& app, OperationSettings& sockets) {
    auto* anchors = app.add_option_function<std::string>(
        "--tls-anchors",
        [&sockets](const std::string& path) {
            sockets.tls = sockets.tls.value_or(TlsSettings{});
            sockets.tls->trustAnchors = path;
        },
        "PEM file, by its absolute path in the unit, of the certificates that vouch for the "
        "backend: its sockets then speak TLS");
    app.add_option_function<std::string>(
           "--tls-name",
           [&sockets](const std::string& name) {
               sockets.tls = sockets.tls.value_or(TlsSettings{});
               sockets.tls->serverName = name;
           },
           "name in the backend's certificate (default: the host of its URL)")
        ->needs(anchors);
    app.add_option_function<std::string>(
        "--proxy",
        [&sockets](const std::string& text) {
            sockets.proxy = ParseProxy(text);
            if (!sockets.proxy) {
                throw CLI::ValidationError("--proxy", "takes TYPE://HOST:PORT");
            }
        },
        "http://HOST:PORT or socks5://HOST:PORT between unit and backend");
}

/// Adds the options for the SOME/IP network.
void AddNetworkOptions(CLI::App& app, Options& options) {
    app.add_option("--someip-address", options.network.address,
                   "IPv4 address that the diagnostic information is offered at (default: one of "
                   "127.0.0.0/8 that no other process has)")
        ->check(CLI::ValidIPV4);
    app.add_option("--someip-unit-address", options.unitAddress,
                   "IPv4 address of the unit (default: as above)")
        ->check(CLI::ValidIPV4);
    app.add_option("--someip-multicast", options.network.multicastGroup,
                   "multicast group of service discovery (default: as above, of 239.192.0.0/10)")
        ->check(CLI::ValidIPV4);
    app.add_option("--someip-port", options.network.sdPort, "UDP port of service discovery")
        ->check(CLI::Range(1, 65535))
        ->capture_default_str();
}

/// The command line's values, before they are converted.
struct Arguments {
    Options options;
    std::string root;
    bool rootInUnit{false};
    std::string clamp{"off"};
    std::string immobilizer{"up"};
    std::string session{ToText(options.session)};
    std::string activation{"on"};
    std::string connection{ToText(options.connection)};
};

/// Adds the options for the paths of the unit's files and sockets.
void AddPathOptions(CLI::App& app, Arguments& arguments) {
    app.add_option("--root", arguments.root,
                   "directory before all the unit's paths that are not given");
    app.add_flag("--root-in-unit", arguments.rootInUnit,
                 "the unit sees the root directory as /: paths inside its files go without it");
    for (const UnitPath& path : kPaths) {
        app.add_option(path.option, arguments.options.*path.field,
                       std::string(path.help) + " (default: <root>" + path.path + ")");
    }
}

/// Adds the options for the vehicle's initial state.
void AddStateOptions(CLI::App& app, Arguments& arguments) {
    app.add_option("--vin", arguments.options.vin, "VIN of the immobilizer")
        ->default_val("VNTREL00000000001");
    app.add_option("--clamp", arguments.clamp, "Clamp 15 at start")
        ->check(CLI::IsMember({"on", "off"}))
        ->capture_default_str();
    app.add_option("--immobilizer", arguments.immobilizer, "immobilizer service at start")
        ->check(CLI::IsMember({"up", "down"}))
        ->capture_default_str();
    app.add_option("--session", arguments.session, "connector session at start")
        ->check(OneOf(kSessions))
        ->capture_default_str();
    app.add_option("--activation", arguments.activation,
                   "activation of the transaction type at start")
        ->check(CLI::IsMember({"on", "off"}))
        ->capture_default_str();
    app.add_option("--connection", arguments.connection, "connection state at start")
        ->check(OneOf(kConnections))
        ->capture_default_str();
}

/// Adds the options for the diagnostic information.
void AddEcuOptions(CLI::App& app, Options& options) {
    app.add_option("--ecu-sw", options.swVersion, "software version")->default_val("0209");
    app.add_option("--ecu-hw", options.hwVersion, "hardware version")->default_val("H01");
    app.add_option("--ecu-part", options.partNumber, "part number")->default_val("VN035000A01");
    app.add_option("--ecu-address", options.diagnosticAddress, "diagnostic address")
        ->default_val("0xC003");
}

std::string Absolute(const std::string& path) {
    return std::filesystem::absolute(path).lexically_normal().string();
}

void SetPaths(const Arguments& arguments, Options& options) {
    for (const UnitPath& path : kPaths) {
        std::string& value = options.*path.field;
        const bool isDefault = value.empty();
        if (isDefault) {
            value.append(arguments.root).append(path.path);
        }
        value = Absolute(value);
        if (path.field == &Options::serviceSocketPath) {
            options.serviceSocketPathInUnit = isDefault && arguments.rootInUnit ? path.path : value;
        }
    }
}

Options OptionsOf(const Arguments& arguments) {
    Options options = arguments.options;
    SetPaths(arguments, options);
    options.clamp15On = arguments.clamp == "on";
    options.immobilizerUp = arguments.immobilizer == "up";
    options.session = ParseSession(arguments.session).value_or(options.session);
    options.activated = arguments.activation == "on";
    options.connection = ParseConnection(arguments.connection).value_or(options.connection);
    return options;
}

}  // namespace

std::optional<SessionStatus> ParseSession(const std::string& text) {
    return Find(kSessions, text);
}

std::optional<ConnectionState> ParseConnection(const std::string& text) {
    return Find(kConnections, text);
}

const char* ToText(SessionStatus status) {
    return Name(kSessions, status);
}

const char* ToText(ConnectionState state) {
    return Name(kConnections, state);
}

std::function<Options()> AddOptions(CLI::App& app) {
    const auto arguments = std::make_shared<Arguments>();
    Options& options = arguments->options;
    // In the order of the help text.
    AddPathOptions(app, *arguments);
    app.add_option("--ready-file", options.readyFile,
                   "file to make once all is served, instead of the line \"ready\"");
    app.add_flag("--stdin", options.endWithInput, "end at the end of standard input");
    AddPageOptions(app, options);
    app.add_option("--backend-url", options.backendUrl, "invocation URL of the backend")
        ->default_val("https://localhost:8443/certificates");
    AddSocketOptions(app, options.backendSockets);
    AddNetworkOptions(app, options);
    AddStateOptions(app, *arguments);
    AddEcuOptions(app, options);
    return [arguments] { return OptionsOf(*arguments); };
}

}  // namespace simulator::vehicle
