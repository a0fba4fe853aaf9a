#include "vehicle/diagnostic_info_services.h"

#include <array>
#include <cstdio>
#include <utility>

#include <ac/com/cpp_binding/event_cache_update_policy.h>
#include <eb/com/runtime/instance_id.h>

#include "logging/qel_logging.h"

namespace orv::tee {

namespace {

using ac::com::cpp_binding::Event_cache_update_policy;
using qel_logging::QELLogEntry;
using qel_logging::QELLogging;

constexpr std::size_t kCacheSize = 20;

constexpr const char* kUnknownSwVersion = "----";
constexpr const char* kUnknownHwVersion = "---";
constexpr const char* kUnknownPartNumber = "-----------";

std::string Text(const std::vector<std::uint8_t>& bytes) {
    return {bytes.begin(), bytes.end()};
}

std::string FourHexDigits(std::uint16_t value) {
    std::array<char, 5> digits{};
    std::snprintf(digits.data(), digits.size(), "%04X", static_cast<unsigned>(value));
    return digits.data();
}

}  // namespace

std::shared_ptr<DiagnosticInfoServicesIf> DiagnosticInfoServicesIf::Create() {
    return std::make_shared<DiagnosticInfoServices>();
}

DiagnosticInfoServices::~DiagnosticInfoServices() {
    if (const std::shared_ptr<Proxy> proxy = CurrentProxy()) {
        proxy->identificationData.Unsubscribe();
    }
    mFindServiceHandle.reset();
    // The search may have brought another proxy up to its very end.
    ReleaseProxy();
}

void DiagnosticInfoServices::Start() {
    if (CurrentProxy()) {
        return;
    }
    QELLogging::LogInfo("DiagnosticInfoServices::Start");
    mFindServiceHandle =
        Proxy::StartFindService([this](const auto& handles) { HandleFoundServices(handles); },
                                eb::com::runtime::Instance_id::Any);
}

std::string DiagnosticInfoServices::GetEcuPartNumber() {
    return Copy(mPartNumber);
}

std::string DiagnosticInfoServices::GetEcuDiagnosticAddress() {
    return Copy(mDiagnosticAddress);
}

std::string DiagnosticInfoServices::GetEcuSwVersion() {
    return Copy(mSwVersion);
}

std::string DiagnosticInfoServices::GetEcuHwVersion() {
    return Copy(mHwVersion);
}

void DiagnosticInfoServices::HandleFoundServices(
    const std::vector<ara::com::ServiceHandle>& handles) {
    if (handles.empty()) {
        ReleaseProxy();
        QELLogging::LogInfo("DiagnosticInfoServices service stopped");
        return;
    }
    QELLogging::LogInfo("DiagnosticInfoService service found");
    const std::shared_ptr<Proxy> proxy = KeepNewProxy(handles.front());
    if (!proxy) {
        return;
    }
    proxy->identificationData.SetReceiveHandler([this] { HandleDiagnosticEvent(); });
    proxy->identificationData.Subscribe(Event_cache_update_policy::kNewestN, kCacheSize);
    QELLogging::LogInfo("DiagnosticInfoServices::Subscribed to events");
}

std::shared_ptr<DiagnosticInfoServices::Proxy> DiagnosticInfoServices::KeepNewProxy(
    const ara::com::ServiceHandle& handle) {
    const std::lock_guard<std::mutex> lock(mMutex);
    if (mProxy) {
        return nullptr;
    }
    QELLogging::LogInfo("Subscribing to DiagnosticInfo");
    mProxy = std::make_shared<Proxy>(handle);
    return mProxy;
}

void DiagnosticInfoServices::HandleDiagnosticEvent() {
    const std::shared_ptr<Proxy> proxy = CurrentProxy();
    if (!proxy) {
        return;
    }
    const bool updated = proxy->identificationData.Update();
    QELLogging::LogInfo("DiagnosticInfoProxy::HandleDiagnosticEvent updated: ", (updated ? 1 : 0));
    if (updated) {
        GetData();
    }
}

void DiagnosticInfoServices::GetData() {
    const std::shared_ptr<Proxy> proxy = CurrentProxy();
    if (!proxy) {
        return;
    }
    QELLogging::LogInfo("DiagnosticInfoProxy::GetData");
    for (const auto& sample : proxy->identificationData.GetCachedSamples()) {
        QELLogging::LogInfo("DiagnosticInfoProxy::GetData vector elements: ",
                            static_cast<unsigned int>(sample->size()));
        for (const Record& record : *sample) {
            StoreRecord(record);
        }
    }
    proxy->identificationData.Cleanup();
}

void DiagnosticInfoServices::StoreRecord(const Record& record) {
    QELLogging::LogInfo("Get data from entry");
    if (record.diagnosticAddress) {
        const std::string address = FourHexDigits(*record.diagnosticAddress);
        {
            const std::lock_guard<std::mutex> lock(mMutex);
            mDiagnosticAddress = address;
        }
        QELLogging::LogInfo("Received diagnosticAddress: '", address, "' stored");
    }
    if (record.swVersion) {
        SetEcuSwVersion(Text(*record.swVersion));
    }
    if (record.hwVersion) {
        SetEcuHwVersion(Text(*record.hwVersion));
    }
    if (record.partNumber) {
        SetEcuPartNumber(Text(*record.partNumber));
    }
}

void DiagnosticInfoServices::SetEcuSwVersion(std::string swVersion) {
    StoreValue("swVersion", std::move(swVersion), kUnknownSwVersion, mSwVersion);
}

void DiagnosticInfoServices::SetEcuHwVersion(std::string hwVersion) {
    StoreValue("hwVersion", std::move(hwVersion), kUnknownHwVersion, mHwVersion);
}

void DiagnosticInfoServices::SetEcuPartNumber(std::string partNumber) {
    StoreValue("partNumber", std::move(partNumber), kUnknownPartNumber, mPartNumber);
}

void DiagnosticInfoServices::StoreValue(const char* name, std::string value,
                                        const char* placeholder, std::string& target) {
    QELLogEntry entry;
    entry << "Received " << name << ": '" << value;
    if (value == placeholder) {
        entry << "' is unknown and storing skipped, current " << name << ": '" << Copy(target)
              << "'";
    } else {
        entry << "' stored";
        const std::lock_guard<std::mutex> lock(mMutex);
        target = std::move(value);
    }
    QELLogging::LogInfo(entry);
}

void DiagnosticInfoServices::ReleaseProxy() {
    std::shared_ptr<Proxy> proxy;
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        proxy.swap(mProxy);
    }
    if (proxy) {
        // Waits for a receive handler that is at work with the proxy.
        proxy->identificationData.Unsubscribe();
    }
}

std::shared_ptr<DiagnosticInfoServices::Proxy> DiagnosticInfoServices::CurrentProxy() const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return mProxy;
}

std::string DiagnosticInfoServices::Copy(const std::string& value) const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return value;
}

}  // namespace orv::tee
