#pragma once

#include <memory>
#include <string>

#include "client/backend_response_event_data.h"
#include "client/url_data.h"
#include "client/zem_connector_fsm_if.h"
#include "fsm/fsm.h"

namespace vintrel {

/// One exchange with the backend; made anew for each attempt. Dispatcher thread only.
class BackendRequestHandlerFsmIf : public fsm::Fsm {
public:
    using fsm::Fsm::Fsm;

    /// Starts the exchange. After a true result the target gets exactly one event `targetEvent`
    /// with info 0 and a `BackendResponseEventData`; after false it gets none.
    virtual bool StartFsm(std::shared_ptr<fsm::EventDispatcher> dispatcher,
                          std::shared_ptr<fsm::Fsm> target, int targetEvent, std::string request,
                          std::shared_ptr<ZemConnectorFsmIf> connectorFsm,
                          const UrlData& urlData) = 0;
};

}  // namespace vintrel
