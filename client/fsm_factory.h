#pragma once

#include <memory>
#include <string>

#include "client/backend_request_handler_fsm_if.h"
#include "client/hsm_if.h"
#include "client/zem_connector_fsm_if.h"
#include "process/process_lifecycle_adapter_callback_if.h"
#include "process/process_lifecycle_adapter_if.h"

namespace zem_connector {
class ZemConnector;
class ZemPubSubCallbackIf;
class ZemSessionCallbackIf;
}  // namespace zem_connector

namespace vintrel {

/// Makes the collaborators of the machines; a test derives from it to put others in their place.
///
/// It has no data. Machines hold it by reference: it must outlive them.
class FsmFactory {
public:
    virtual std::shared_ptr<BackendRequestHandlerFsmIf> NewBackendRequestHandlerFsm() const;

    /// Throws std::runtime_error if the secure store can't be opened.
    virtual std::shared_ptr<HsmIf> NewHsm() const;

    /// `name` is the transaction type that the connector subscribes to.
    virtual std::shared_ptr<ZemConnectorFsmIf> NewZemConnectorFsm(const std::string& name) const;

    /// The callbacks are not owned; `pubSubCallback` may be null.
    virtual std::unique_ptr<zem_connector::ZemConnector> NewZemConnector(
        zem_connector::ZemSessionCallbackIf* sessionCallback,
        zem_connector::ZemPubSubCallbackIf* pubSubCallback) const;

    /// `callback` is not owned and must outlive the adapter.
    virtual std::shared_ptr<process_lifecycle_adapter::ProcessLifecycleAdapterIf>
    NewProcessLifecycleAdapter(
        process_lifecycle_adapter::ProcessLifecycleAdapterCallbackIf* callback) const;
};

}  // namespace vintrel
