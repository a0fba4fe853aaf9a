#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include <service_access/server.h>

#include "diagnosticinfo_host/diagnostic_info_server.h"
#include "simulator/vehicle/options.h"
#include "vonta_socket_host/stream_server.h"
#include "zem_connector_host/connector_file.h"

namespace simulator::vehicle {

/// The vehicle's services as seen by a control unit. Serves from construction to destruction, on
/// threads of its own. The operations may be called from one thread at a time.
class Vehicle {
public:
    /// A field of the unit's identification that commands can set.
    enum class EcuValue { kSwVersion, kHwVersion, kPartNumber };

    /// Starts all services and writes the unit's configuration files. Throws a std::exception with
    /// the cause if a port, socket or file is unavailable; nothing is served then.
    explicit Vehicle(const Options& options);

    void SetClamp(bool on);
    void SetImmobilizerAvailable(bool available);
    /// With an empty text the immobilizer's record has no VIN.
    void SetVin(const std::string& vin);

    /// Sends an alert; returns the number of subscribers that were sent it.
    std::size_t SendAlert(const std::string& operationId, std::uint8_t code);

    /// Each throws std::system_error if the connector's file can't be written; the state is then
    /// unchanged.
    void SetSession(zem_connector::SessionStatus status);
    void SetActivated(bool activated);
    void SetConnection(ConnectionState state);
    void SetUrl(const std::string& url);

    /// Throws std::length_error if the field does not fit into a datagram; the value is then
    /// unchanged.
    void SetEcuValue(EcuValue value, const std::string& text);
    void SetDiagnosticInfoAvailable(bool available);

    /// The state as one line of JSON.
    std::string Status() const;

private:
    using IdentificationRecord = diagnosticinfo_host::IdentificationData::value_type;

    void WriteConnectorFile(zem_connector::host::ConnectorFile file);
    void Publish(IdentificationRecord record);

    Options mState;
    bool mDiagnosticInfoAvailable{false};
    zem_connector::host::ConnectorFile mConnector;
    IdentificationRecord mIdentification;
    service_access::Server mServices;
    vonta_socket::host::StreamServer mAlerts;
    diagnosticinfo_host::DiagnosticInfoServer mDiagnosticInfo;
};

}  // namespace simulator::vehicle
