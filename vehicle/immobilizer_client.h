#pragma once

#include <memory>

#include "vehicle/immobilizer_client_if.h"

namespace immobilizerclient {

class ImmobilizerClientImpl;

/// Facade of the immobilizer client.
class ImmobilizerClient : public ImmobilizerClientIf {
public:
    ImmobilizerClient();
    ~ImmobilizerClient() override;

    ImmobilizerClient(const ImmobilizerClient&) = delete;
    ImmobilizerClient& operator=(const ImmobilizerClient&) = delete;

    void Start() override;
    void Stop() override;
    void AssignCallback(ImmobilizerCallbackIf* callback) override;
    void GetImmobilizerVin() override;

private:
    std::shared_ptr<ImmobilizerClientImpl> mImpl;
};

}  // namespace immobilizerclient
