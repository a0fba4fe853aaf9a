#pragma once

#include <memory>

#include <wexa_client/client_service_base.h>

#include "vehicle/immobilizer_access.h"
#include "vehicle/immobilizer_client_if.h"

namespace immobilizerclient {

/// Builds the connection to the service access layer and shuts it down.
class ImmobilizerClientImpl : public ImmobilizerClientIf {
public:
    /// Without a usable configuration of the access layer this logs the reason and makes a client
    /// that never gets connected.
    ImmobilizerClientImpl();

    /// Stops.
    ~ImmobilizerClientImpl() override;

    ImmobilizerClientImpl(const ImmobilizerClientImpl&) = delete;
    ImmobilizerClientImpl& operator=(const ImmobilizerClientImpl&) = delete;

    void Start() override;
    void Stop() override;
    void AssignCallback(ImmobilizerCallbackIf* callback) override;
    void GetImmobilizerVin() override;

private:
    void StopConnection();

    std::shared_ptr<wexa_client::ClientServiceBase> mClientServiceBase;
    // Null if construction failed.
    std::shared_ptr<ImmobilizerAccess> mAccess;
};

}  // namespace immobilizerclient
