#pragma once

namespace zem_connector {

/// Receiver of publish/subscribe messages; optional.
class ZemPubSubCallbackIf {
public:
    virtual ~ZemPubSubCallbackIf() = default;
};

}  // namespace zem_connector
