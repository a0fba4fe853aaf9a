#pragma once

#include <functional>
#include <memory>
#include <vector>

namespace someip {
class ServiceClient;
}

namespace ara::com {

/// One found instance of a service; a proxy is made from it. Copies are cheap.
class ServiceHandle {
public:
    explicit ServiceHandle(std::shared_ptr<someip::ServiceClient> client);

    const std::shared_ptr<someip::ServiceClient>& Client() const { return mClient; }

private:
    std::shared_ptr<someip::ServiceClient> mClient;
};

/// Called on a thread of the middleware at each change of availability: with the available
/// instances, or with an empty list when the service is no longer available. Calls of one search do
/// not overlap.
using FindServiceHandler = std::function<void(const std::vector<ServiceHandle>& handles)>;

}  // namespace ara::com
