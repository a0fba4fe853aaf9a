#pragma once

#include <memory>
#include <string>

#include <ara/com/service_handle.h>

namespace ara::com {

/// A running search for a service. Its destruction ends the search: afterwards the handler neither
/// runs nor will run; destroyed from inside the handler, it doesn't wait for that run.
class FindServiceHandle {
public:
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
