#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include <someip/discovery/deployment.h>
#include <zem_connector/session_status.h>
#include <zem_connector/zem_service_controller_callback_if.h>

#include "zem_connector_host/operation_settings.h"

namespace CLI {
class App;
}

namespace simulator::vehicle {

using ConnectionState = zem_connector::ZemServiceControllerCallbackIf::SCConnectionState;

/// What the vehicle serves, where, and in which state it starts.
struct Options {
    /// Absolute paths of the simulator's files and sockets.
    std::string clientConfigPath;
    std::string serviceSocketPath;
    std::string alertSocketPath;
    std::string connectorPath;
    std::string deploymentPath;
    std::string controlPath;
    /// The service socket's path as the unit sees it, which goes into its client configuration.
    std::string serviceSocketPathInUnit;
    /// File that reports readiness; if empty, the line "ready" on standard output does.
    std::string readyFile;
    /// Ends at the end of standard input.
    bool endWithInput{false};
    /// Whether the unit's page is served, on which TCP port (0: any free one), and where the
    /// backend simulator of the unit is: its control socket and journal, empty without.
    bool servesPage{false};
    std::uint16_t pagePort{0};
    std::string pageBackend;
    std::string pageJournal;

    bool clamp15On{false};
    bool immobilizerUp{true};
    std::string vin;
    zem_connector::SessionStatus session{zem_connector::SessionStatus::kStarted};
    bool activated{true};
    ConnectionState connection{ConnectionState::kConnected};
    std::string backendUrl;
    /// Proxy and TLS of the unit's sockets to the backend.
    zem_connector::host::OperationSettings backendSockets;
    /// SOME/IP network where the diagnostic information is offered, and the unit's address on it.
    someip::NetworkDeployment network{someip::LoopbackNetwork(someip::LoopbackEnd::kProvider)};
    std::string unitAddress{someip::LoopbackNetwork(someip::LoopbackEnd::kClient).address};
    std::uint16_t diagnosticAddress{0};
    std::string swVersion;
    std::string hwVersion;
    std::string partNumber;
};

/// Adds the program's options to a parser. The result returns the options after the parser has
/// parsed a command line.
std::function<Options()> AddOptions(CLI::App& app);

/// The texts of commands and options. Parsing ignores case; nothing for an unknown text.
std::optional<zem_connector::SessionStatus> ParseSession(const std::string& text);
std::optional<ConnectionState> ParseConnection(const std::string& text);
const char* ToText(zem_connector::SessionStatus status);
const char* ToText(ConnectionState state);

}  // namespace simulator::vehicle
