#pragma once

#include <memory>
#include <string>

#include <ara/com/service_handle.h>

namespace ara::com {

/// A running search for a service. Its destruction ends the search: afterwards the handler neither
/// runs nor will run; destroyed from inside the handler, it does not wait for that run. Any thread.
class FindServiceHandle {
public:
    /// Searches from now on, by the deployment file that the environment names. `instance` is an id
    /// in decimal digits or "Any". A service that is not deployed is not found; that is logged.
    /// What the handler refers to must outlive this object.
    FindServiceHandle(const std::string& serviceName, const std::string& instance,
                      FindServiceHandler handler);
    ~FindServiceHandle();

    FindServiceHandle(const FindServiceHandle&) = delete;
    FindServiceHandle& operator=(const FindServiceHandle&) = delete;

private:
    class Impl;
    std::unique_ptr<Impl> mImpl;
};

}  // namespace ara::com
