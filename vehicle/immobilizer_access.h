#pragma once

#include <atomic>
#include <exception>
#include <memory>

#include <lumo/lumo_client.h>
#include <lumo/lumo_response.h>
#include <lumoobjects_LUMO/immobilizer_service.h>

#include "vehicle/immobilizer_client_if.h"

namespace immobilizerclient {

/// Holds the immobilizer service while it is connected, and queries it. Any thread. The library
/// must be stopped before this object is destroyed.
class ImmobilizerAccess : public lumo::LumoClient, public ImmobilizerClientIf {
public:
    using lumo::LumoClient::LumoClient;

    /// Registers for the service.
    void start() override;
    ~ImmobilizerAccess() override;

    /// The same as start.
    void Start() override;
    /// Does nothing: what there is to stop belongs to the library.
    void Stop() override;
    void AssignCallback(ImmobilizerCallbackIf* callback) override;
    void GetImmobilizerVin() override;

private:
    using Service = lumoobjects_LUMO::ImmobilizerService;

    void ServiceConnected(std::shared_ptr<Service> service);
    void ServiceDisconnected();
    void ServiceError(const std::exception& exception);
    void QueryVin(const Service& service);
    void QuerySucceeded(const std::shared_ptr<const Service::Info>& info);
    void QueryFailed(const std::shared_ptr<const lumo::LumoResponse>& response);
    void NotifyConnection(bool connected);
    void NotifyVin(const std::string& vin);

    std::atomic<ImmobilizerCallbackIf*> mCallback{nullptr};
    // Only by the atomic operations on shared pointers.
    std::shared_ptr<Service> mService;
};

}  // namespace immobilizerclient
