#include "vehicle/immobilizer_access.h"

#include <string>
#include <utility>

#include <lumo/service_listener.h>

#include "logging/qel_logging.h"

namespace immobilizerclient {

using qel_logging::QELLogging;

ImmobilizerAccess::~ImmobilizerAccess() = default;

void ImmobilizerAccess::start() {
    lumo::ServiceListener<Service> listener;
    listener.connected = [this](std::shared_ptr<Service> service) {
        ServiceConnected(std::move(service));
    };
    listener.disconnected = [this] { ServiceDisconnected(); };
    listener.error = [this](const std::exception& exception) { ServiceError(exception); };
    getServices()->getServiceRegistry()->registerServiceListener<Service>(std::move(listener));
}

void ImmobilizerAccess::Start() {
    start();
}

void ImmobilizerAccess::Stop() {}

void ImmobilizerAccess::AssignCallback(ImmobilizerCallbackIf* callback) {
    mCallback = callback;
}

void ImmobilizerAccess::GetImmobilizerVin() {
    const auto service = std::atomic_load(&mService);
    if (!service) {
        QELLogging::LogError("Immobilizer Client: Not ready");
        NotifyVin({});
        return;
    }
    try {
        QueryVin(*service);
    } catch (...) {
        QELLogging::LogError("Immobilizer Client: LumoAccess exception");
        NotifyVin({});
    }
}

void ImmobilizerAccess::QueryVin(const Service& service) {
    Service::InfoDescriptor descriptor;
    descriptor.setQueryOptions(
        {Service::INFO_FIELDS::kId, Service::INFO_FIELDS::kVehicleIdentificationNumber},
        Service::QUERY_OPTION::kDefault);
    service.getAccessor()->findFirst<Service::Info>(
        descriptor,
        [this](const std::shared_ptr<const Service::Info>& info,
               const std::shared_ptr<const lumo::LumoResponse>& /*response*/) {
            QuerySucceeded(info);
        },
        [this](const std::shared_ptr<const lumo::LumoResponse>& response) {
            QueryFailed(response);
        });
}

void ImmobilizerAccess::QuerySucceeded(const std::shared_ptr<const Service::Info>& info) {
    const auto vin = info ? info->getVehicleIdentificationNumber() : std::nullopt;
    if (!vin) {
        QELLogging::LogError("Immobilizer Client: success callback returned empty vin element");
        NotifyVin({});
        return;
    }
    NotifyVin(*vin);
}

void ImmobilizerAccess::QueryFailed(const std::shared_ptr<const lumo::LumoResponse>& response) {
    if (response) {
        if (const auto exception = response->getHttpException()) {
            QELLogging::LogError("Immobilizer Client: ErrorCb: ", exception->what());
        } else {
            QELLogging::LogError("Immobilizer Client: ErrorCb, response status: ",
                                 response->getStatusCode());
        }
    }
    NotifyVin({});
}

void ImmobilizerAccess::ServiceConnected(std::shared_ptr<Service> service) {
    std::atomic_store(&mService, std::move(service));
    QELLogging::LogInfo("Immobilizer Client: Service connected");
    NotifyConnection(true);
}

void ImmobilizerAccess::ServiceDisconnected() {
    std::atomic_store(&mService, std::shared_ptr<Service>());
    QELLogging::LogInfo("Immobilizer Client: Service disconnected");
    NotifyConnection(false);
}

void ImmobilizerAccess::ServiceError(const std::exception& exception) {
    QELLogging::LogError("Immobilizer Client: ServiceListener Error: ", exception.what());
}

void ImmobilizerAccess::NotifyConnection(bool connected) {
    if (auto* const callback = mCallback.load()) {
        callback->ConnectionStateNotification(connected);
    }
}

void ImmobilizerAccess::NotifyVin(const std::string& vin) {
    if (auto* const callback = mCallback.load()) {
        callback->ImmobilizerVinReceived(vin);
    }
}

}  // namespace immobilizerclient
