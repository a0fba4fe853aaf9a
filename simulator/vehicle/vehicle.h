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

/// The vehicle's services as a control unit meets them. Serves from construction to destruction,
/// on threads of its own. The operations are to be called from one thread at a time.
class Vehicle {
public:
    /// What a command wants of the identification of the unit.
    enum class EcuValue { kSwVersion, kHwVersion, kPartNumber };

    /// Starts all services and writes the unit's configuration files. Throws a std::exception that
    /// says what could not be had; nothing is served then.
    explicit Vehicle(const Options& options);

    void SetClamp(bool on);
    void SetImmobilizerAvailable(bool available);
    /// An empty text: the immobilizer's record has no VIN.
    void SetVin(const std::string& vin);

    /// Sends an alert; returns how many subscribers took it.
    std::size_t SendAlert(const std::string& operationId, std::uint8_t code);

    /// Each throws std::system_error if the connector's file can't be written; the state is then
    /// as it was.
    void SetSession(zem_connector::SessionStatus status);
    void SetActivated(bool activated);
    void SetConnection(ConnectionState state);
    void SetUrl(const std::string& url);

    /// Throws std::length_error if the field does not fit into a datagram; the value is then as it
    /// was.
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
