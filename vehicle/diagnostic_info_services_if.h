#pragma once

#include <memory>
#include <string>

namespace orv::tee {

/// What the unit's diagnostic service publishes of the unit. A value is empty until it has arrived;
/// the loss of the service leaves the values as they are. Any thread may call the getters.
class DiagnosticInfoServicesIf {
public:
    virtual ~DiagnosticInfoServicesIf() = default;

    static std::shared_ptr<DiagnosticInfoServicesIf> Create();

    /// Starts the search for the service; without effect while the service is known. Returns at
    /// once. To be called on the thread that destroys the object.
    virtual void Start() = 0;

    virtual std::string GetEcuPartNumber() = 0;
    /// Four upper-case hexadecimal digits.
    virtual std::string GetEcuDiagnosticAddress() = 0;
    virtual std::string GetEcuSwVersion() = 0;
    virtual std::string GetEcuHwVersion() = 0;
};

}  // namespace orv::tee
