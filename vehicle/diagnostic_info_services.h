#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <ara/com/find_service_handle.h>
#include <ara/com/service_handle.h>
#include <orv/services/diagnosticinfo/proxy/diagnostic_info_proxy.h>

#include "vehicle/diagnostic_info_services_if.h"

namespace orv::tee {

/// Finds the diagnostic service, subscribes to its field identificationData and keeps the latest
/// usable values. Its discovery and its notifications run on threads of the middleware.
class DiagnosticInfoServices : public DiagnosticInfoServicesIf {
public:
    DiagnosticInfoServices() = default;

    /// Afterwards no handler of this object runs; waits for one that does.
    ~DiagnosticInfoServices() override;

    DiagnosticInfoServices(const DiagnosticInfoServices&) = delete;
    DiagnosticInfoServices& operator=(const DiagnosticInfoServices&) = delete;

    void Start() override;
    std::string GetEcuPartNumber() override;
    std::string GetEcuDiagnosticAddress() override;
    std::string GetEcuSwVersion() override;
    std::string GetEcuHwVersion() override;

    /// Receive handler of the field. Without a proxy nothing happens.
    void HandleDiagnosticEvent();

    /// Takes the values out of the field's cache and empties it. Without a proxy nothing happens.
    void GetData();

    /// Each stores a value unless it is the placeholder, a run of hyphens of a certain length, that
    /// means that the service does not know the value.
    void SetEcuSwVersion(std::string swVersion);
    void SetEcuHwVersion(std::string hwVersion);
    void SetEcuPartNumber(std::string partNumber);

private:
    using Proxy = services::diagnosticinfo::proxy::DiagnosticInfoProxy;
    using Record = services::diagnosticinfo::datatypes::DT_identificationData_struct;

    /// May overlap with itself: a search that is being replaced may still report.
    void HandleFoundServices(const std::vector<ara::com::ServiceHandle>& handles);
    /// The new proxy, or null if there is one already.
    std::shared_ptr<Proxy> KeepNewProxy(const ara::com::ServiceHandle& handle);
    void StoreRecord(const Record& record);
    void StoreValue(const char* name, std::string value, const char* placeholder,
                    std::string& target);
    void ReleaseProxy();

    std::shared_ptr<Proxy> CurrentProxy() const;
    std::string Copy(const std::string& value) const;

    std::shared_ptr<Proxy> mProxy;
    std::unique_ptr<ara::com::FindServiceHandle> mFindServiceHandle;
    std::string mPartNumber;
    std::string mDiagnosticAddress;
    std::string mSwVersion;
    std::string mHwVersion;

    /// Guards mProxy and the four strings, which the middleware's threads write and others read.
    /// Never held while the middleware is called in a way that waits for a handler.
    mutable std::mutex mMutex;
};

}  // namespace orv::tee
