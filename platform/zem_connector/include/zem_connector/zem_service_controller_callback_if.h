#pragma once

#include <cstdint>
#include <list>
#include <string>

namespace zem_connector {

/// State of the service controller's own session.
enum class SCSessionStatus : std::int32_t {
    kInactive = 0,
    kActive = 1,
};

/// Answer to `GetInvocationUrl`.
struct SCUrlResult {
    /// 0 means success.
    std::uint8_t result{0};
    std::string operationTypeId;
    std::string url;
};

/// One reason why a transaction type is disabled.
struct SCDisabledReasonInfo {
    std::int32_t reason{0};
    std::int32_t detail{0};
};

/// Activation state of a transaction type; no reasons mean that it is activated.
struct SCActivationStateUpdate {
    std::uint8_t domain{0};
    std::int32_t subscriptionId{0};
    std::int32_t sequence{0};
    std::string transactionType;
    std::list<SCDisabledReasonInfo> disabledReasons;
};

/// Receiver of what concerns operations and transaction types. Called on threads of the library.
class ZemServiceControllerCallbackIf {
public:
    /// State of the vehicle's data link, as far as a transaction type may use it.
    enum class SCConnectionState : std::uint8_t {
        kNotAvailable = 0,
        kDisconnected = 1,
        kOnDemand = 2,
        kConnected = 3,
    };

    /// Connection state of a transaction type.
    struct SCConnectionStateUpdate {
        std::uint8_t domain{0};
        std::int32_t subscriptionId{0};
        std::int32_t sequence{0};
        std::string transactionType;
        SCConnectionState connectionState{SCConnectionState::kNotAvailable};
    };

    virtual ~ZemServiceControllerCallbackIf() = default;

    virtual void ZemSCSessionStatus(SCSessionStatus status) = 0;
    virtual void ZemSCInvocationURL(SCUrlResult result) = 0;
    virtual void ZemSCActivationState(SCActivationStateUpdate update) = 0;
    virtual void ZemSCConnectionState(SCConnectionStateUpdate update) = 0;
};

}  // namespace zem_connector
