#include "client/fsm_factory.h"

#include <zem_connector/zem_connector.h>

#include "backend/backend_request_handler_fsm.h"
#include "backend/zem_connector_fsm.h"
#include "certificates/hsm.h"
#include "process/process_lifecycle_adapter.h"

namespace vintrel {

std::shared_ptr<BackendRequestHandlerFsmIf> FsmFactory::NewBackendRequestHandlerFsm() const {
    return std::make_shared<BackendRequestHandlerFsm>();
}

std::shared_ptr<HsmIf> FsmFactory::NewHsm() const {
    return std::make_shared<Hsm>();
}

std::shared_ptr<ZemConnectorFsmIf> FsmFactory::NewZemConnectorFsm(const std::string& name) const {
    return std::make_shared<ZemConnectorFsm>(*this, name);
}

std::unique_ptr<zem_connector::ZemConnector> FsmFactory::NewZemConnector(
    zem_connector::ZemSessionCallbackIf* sessionCallback,
    zem_connector::ZemPubSubCallbackIf* pubSubCallback) const {
    return std::make_unique<zem_connector::ZemConnector>(sessionCallback, pubSubCallback);
}

std::shared_ptr<process_lifecycle_adapter::ProcessLifecycleAdapterIf>
FsmFactory::NewProcessLifecycleAdapter(
    process_lifecycle_adapter::ProcessLifecycleAdapterCallbackIf* callback) const {
    return std::make_shared<process_lifecycle_adapter::ProcessLifecycleAdapter>(callback);
}

}  // namespace vintrel
