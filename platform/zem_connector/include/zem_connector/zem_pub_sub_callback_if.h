#pragma once

namespace zem_connector {

/// Receiver of publish/subscribe messages, which a client may do without.
class ZemPubSubCallbackIf {
public:
    virtual ~ZemPubSubCallbackIf() = default;
};

}  // namespace zem_connector
