#pragma once

#include <string>

namespace nuro_common {

/// Receiver of what a clamp control handler learns. All operations are called on threads of the
/// clamp control client.
class ClampControlHandlerCbIf {
public:
    virtual ~ClampControlHandlerCbIf() = default;

    /// The clamp of that name is on or off. Must not block.
    virtual void ClampStateChangeCb(const std::string& clampName, bool state) = 0;

    /// The clamp control service came or went. May call SubscribeNB.
    virtual void ClampControlConnectionStateChangeCb(bool connected) = 0;

    /// The service accepted a subscription.
    virtual void ClampSubscribedCb() = 0;
};

}  // namespace nuro_common
