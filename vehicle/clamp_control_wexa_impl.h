#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "client/clamp_control_cb_if.h"
#include "client/clamp_control_if.h"
#include "vehicle/clamp_control_handler_cb_if.h"
#include "vehicle/clamp_control_handler_if.h"

namespace vintrel {

/// Clamp control through the service access layer.
class ClampControlWexaImpl : public ClampControlIf, public nuro_common::ClampControlHandlerCbIf {
public:
    /// `callback` must outlive this object.
    explicit ClampControlWexaImpl(ClampControlCbIf& callback);

    /// No callback comes any more when this returns.
    ~ClampControlWexaImpl() override;

    ClampControlWexaImpl(const ClampControlWexaImpl&) = delete;
    ClampControlWexaImpl& operator=(const ClampControlWexaImpl&) = delete;

    bool Subscribe() override;

    void ClampStateChangeCb(const std::string& clampName, bool state) override;
    void ClampControlConnectionStateChangeCb(bool connected) override;
    void ClampSubscribedCb() override;

private:
    ClampControlCbIf& mCallback;
    std::atomic<bool> mSubscribed{false};
    // Last, and never reset: its destructor waits for notifications, which use all of the above
    // and the handler itself.
    const std::shared_ptr<nuro_common::ClampControlHandlerIf> mHandler;
};

}  // namespace vintrel
