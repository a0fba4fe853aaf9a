#pragma once

#include <cstdint>
#include <list>
#include <string>

namespace zem_connector {

/// State of the service controller's session.
enum class SCSessionStatus : std::int32_t {
    kInactive = 0,
    kActive = 1,
};

/// Answer to `GetInvocationUrl`.
struct SCUrlResult {
    /// 0 means success.
    std::uint8_t result{0};
    /// Of the query.
    std::string operationTypeId;
    /// Empty on failure.
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

/// Receiver of events about operations and transaction types. Called on threads of the library, one
/// call at a time.
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

    /// At subscription and with each change of the session.
    virtual void ZemSCSessionStatus(SCSessionStatus status) = 0;
    /// The one answer to a `GetInvocationUrl` that returned true.
    virtual void ZemSCInvocationURL(SCUrlResult result) = 0;
    /// At subscription and with each change.
    virtual void ZemSCActivationState(SCActivationStateUpdate update) = 0;
    /// At subscription and with each change.
    virtual void ZemSCConnectionState(SCConnectionStateUpdate update) = 0;
};

}  // namespace zem_connector
