#include "simulator/vehicle/vehicle.h"

#include <optional>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include <service_access/service_names.h>

#include "simulator/vehicle/text_file.h"

namespace simulator::vehicle {

namespace {

using nlohmann::json;
using zem_connector::host::ConnectorFile;

constexpr const char* kTransactionType = "QUBA-GenerateTIVCert-C003";
constexpr const char* kOperationId = "QUBA-GenerateTIVCert-C003.COSendCSR";

std::vector<std::uint8_t> Bytes(const std::string& text) {
    return {text.begin(), text.end()};
}

std::string Text(const std::vector<std::uint8_t>& bytes) {
    return {bytes.begin(), bytes.end()};
}

/// The servers create their sockets, but not the parent directories.
std::string WithParents(const std::string& path) {
    MakeParentDirectories(path);
    return path;
}

someip::Deployment ProviderDeployment(const Options& options) {
    return {options.network, diagnosticinfo_host::DefaultDeployment().services};
}

someip::Deployment UnitDeployment(const Options& options) {
    someip::Deployment deployment = ProviderDeployment(options);
    deployment.network.address = options.unitAddress;
    return deployment;
}

}  // namespace

Vehicle::Vehicle(const Options& options)
    : mState(options),
      mServices(WithParents(options.serviceSocketPath)),
      mAlerts(WithParents(options.alertSocketPath)),
      mDiagnosticInfo(ProviderDeployment(options)) {
    mServices.SetServiceAvailable(service_access::kClampControlService, true);
    SetClamp(options.clamp15On);
    SetImmobilizerAvailable(options.immobilizerUp);
    SetVin(options.vin);
    mServices.Start();
    mIdentification.identifier = 1;
    mIdentification.diagnosticAddress = options.diagnosticAddress;
    mIdentification.swVersion = Bytes(options.swVersion);
    mIdentification.hwVersion = Bytes(options.hwVersion);
    mIdentification.partNumber = Bytes(options.partNumber);
    Publish(mIdentification);
    SetDiagnosticInfoAvailable(true);

    WriteFileAtomically(options.clientConfigPath,
                        json{{"socketPath", options.serviceSocketPathInUnit}}.dump(2) + "\n");
    WriteFileAtomically(options.deploymentPath, someip::FormatDeployment(UnitDeployment(options)));
    MakeParentDirectories(options.connectorPath);
    ConnectorFile connector;
    connector.sessionStatus = options.session;
    connector.transactionTypes[kTransactionType] = {options.activated, options.connection};
    connector.invocationUrls[kOperationId] = options.backendUrl;
    connector.operations[kOperationId] = options.backendSockets;
    WriteConnectorFile(std::move(connector));
}

void Vehicle::SetClamp(bool on) {
    mServices.SetClampState(on);
    mState.clamp15On = on;
}

void Vehicle::SetImmobilizerAvailable(bool available) {
    mServices.SetServiceAvailable(service_access::kImmobilizerService, available);
    mState.immobilizerUp = available;
}

void Vehicle::SetVin(const std::string& vin) {
    mServices.SetImmobilizerVin(vin.empty() ? std::nullopt : std::make_optional(vin));
    mState.vin = vin;
}

std::size_t Vehicle::SendAlert(const std::string& operationId, std::uint8_t code) {
    return mAlerts.BroadcastAlert(operationId, code);
}

void Vehicle::SetSession(zem_connector::SessionStatus status) {
    ConnectorFile connector = mConnector;
    connector.sessionStatus = status;
    WriteConnectorFile(std::move(connector));
}

void Vehicle::SetActivated(bool activated) {
    ConnectorFile connector = mConnector;
    connector.transactionTypes[kTransactionType].activated = activated;
    WriteConnectorFile(std::move(connector));
}

void Vehicle::SetConnection(ConnectionState state) {
    ConnectorFile connector = mConnector;
    connector.transactionTypes[kTransactionType].connectionState = state;
    WriteConnectorFile(std::move(connector));
}

void Vehicle::SetUrl(const std::string& url) {
    ConnectorFile connector = mConnector;
    connector.invocationUrls[kOperationId] = url;
    WriteConnectorFile(std::move(connector));
}

void Vehicle::WriteConnectorFile(ConnectorFile file) {
    file.WriteAtomically(mState.connectorPath);
    mConnector = std::move(file);
}

void Vehicle::SetEcuValue(EcuValue value, const std::string& text) {
    IdentificationRecord record = mIdentification;
    switch (value) {
        case EcuValue::kSwVersion:
            record.swVersion = Bytes(text);
            break;
        case EcuValue::kHwVersion:
            record.hwVersion = Bytes(text);
            break;
        case EcuValue::kPartNumber:
            record.partNumber = Bytes(text);
            break;
    }
    Publish(std::move(record));
}

void Vehicle::Publish(IdentificationRecord record) {
    mDiagnosticInfo.Publish({record});
    mIdentification = std::move(record);
}

void Vehicle::SetDiagnosticInfoAvailable(bool available) {
    if (available) {
        mDiagnosticInfo.Offer();
    } else {
        mDiagnosticInfo.StopOffer();
    }
    mDiagnosticInfoAvailable = available;
}

std::string Vehicle::Status() const {
    const auto& transactionType = mConnector.transactionTypes.at(kTransactionType);
    const json status{{"clamp", mState.clamp15On ? "on" : "off"},
                      {"clampSubscribers", mServices.ClampSubscriptionCount()},
                      {"immobilizer", mState.immobilizerUp ? "up" : "down"},
                      {"vin", mState.vin},
                      {"alertSubscribers", mAlerts.GetSubscriberCount()},
                      {"connector",
                       {{"session", ToText(mConnector.sessionStatus)},
                        {"activation", transactionType.activated ? "on" : "off"},
                        {"connection", ToText(transactionType.connectionState)},
                        {"url", mConnector.invocationUrls.at(kOperationId)}}},
                      {"ecu",
                       {{"service", mDiagnosticInfoAvailable ? "up" : "down"},
                        {"subscribers", mDiagnosticInfo.SubscriberCount()},
                        {"sw", Text(*mIdentification.swVersion)},
                        {"hw", Text(*mIdentification.hwVersion)},
                        {"part", Text(*mIdentification.partNumber)}}}};
    return status.dump(-1, ' ', false, json::error_handler_t::replace);
}

}  // namespace simulator::vehicle
