#pragma once

#include <memory>
#include <string>
#include <utility>

#include <ara/com/find_service_handle.h>
#include <ara/com/service_handle.h>

namespace ara::com::internal::proxy {

/// Base of the generated proxies. `Service` is the generated description of the service, with its
/// name as `kServiceName`.
template <typename Service>
class Proxy {
public:
    /// Searches from now on and until the returned object is destroyed. `instance` is a text of
    /// eb::com::runtime::Instance_id. A service that is not deployed is just not found; the
    /// middleware logs it. Any thread.
    static std::unique_ptr<FindServiceHandle> StartFindService(FindServiceHandler handler,
                                                               const std::string& instance) {
        return std::make_unique<FindServiceHandle>(Service::kServiceName, instance,
                                                   std::move(handler));
    }
};

}  // namespace ara::com::internal::proxy
