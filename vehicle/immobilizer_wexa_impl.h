#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "client/immobilizer_cb_if.h"
#include "client/immobilizer_if.h"
#include "vehicle/immobilizer_callback_if.h"
#include "vehicle/immobilizer_client.h"

namespace vintrel {

/// The immobilizer's VIN through the service access layer.
class ImmobilizerWexaImpl : public ImmobilizerIf, public immobilizerclient::ImmobilizerCallbackIf {
public:
    /// `callback` must outlive this object.
    explicit ImmobilizerWexaImpl(ImmobilizerCbIf& callback);

    /// Stops the client. A query under way still ends, with an empty VIN, before this returns; no
    /// callback comes any more afterwards.
    ~ImmobilizerWexaImpl() override;

    ImmobilizerWexaImpl(const ImmobilizerWexaImpl&) = delete;
    ImmobilizerWexaImpl& operator=(const ImmobilizerWexaImpl&) = delete;

    bool ImmobilizerInit() override;
    bool GetVin() override;

    void ImmobilizerVinReceived(const std::string& vin) override;
    void ConnectionStateNotification(bool connected) override;

private:
    ImmobilizerCbIf& mCallback;
    std::atomic<bool> mConnected{false};
    std::shared_ptr<immobilizerclient::ImmobilizerClient> mClient;
};

}  // namespace vintrel
