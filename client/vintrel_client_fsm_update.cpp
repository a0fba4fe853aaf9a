// The certificate update of the client machine: the decision, the request, the exchange with the
// backend, the check of what comes back, and the retries.

#include "client/vintrel_client_fsm.h"
#include "logging/qel_logging.h"

namespace vintrel {

using qel_logging::QELLogging;

namespace {

constexpr int kSystemTimeRetryMilliseconds = 10000;
constexpr int kEcuCapabilitiesRetryMilliseconds = 10000;
constexpr int kValidationDelaySeconds = 3;
constexpr int kMillisecondsPerSecond = 1000;
constexpr int kMaxRetries = 9;

}  // namespace

void VintrelClientFsm::HandleCheckTime() {
    if (!mSystemTime->IsSystemTimeSet()) {
        QELLogging::LogInfo(mLogName, "FsmStateWaitVin",
                            ": System time is not set. Retrying in 10 seconds...");
        RaiseTimerEvent(kEventCheckTime, 0, kSystemTimeRetryMilliseconds, nullptr);
        return;
    }
    if (mUpdateType == kUpdateTypeNormal) {
        TruststoreTivValidityCheck();
        return;
    }
    FixActivationReasonOfTlsAlertPass();
    RaiseEvent(kEventStartUpdate, 0, nullptr);
    SetFsmState(&VintrelClientFsm::StartCertificateUpdate, "StartCertificateUpdate");
}

void VintrelClientFsm::FixActivationReasonOfTlsAlertPass() {
    if (mRetryOngoing) {
        QELLogging::LogInfo(mLogName, "Retry ongoing. Keep currect ActivationReason: ",
                            StatusToString(CurrentActivationReason()));
        return;
    }
    const StatusCode status = mHsm->CheckTrustStoreTivValidity(mKoruVin);
    mRequestParams.activation_reason = status == StatusCode::NoCertificate
                                           ? ACTIVATIONREASON_CLAMP30_DETECTED
                                           : ACTIVATIONREASON_FORCE_REACTIVATION;
}

void VintrelClientFsm::TruststoreTivValidityCheck() {
    const StatusCode status = mHsm->CheckTrustStoreTivValidity(mKoruVin);
    if (!mRetryOngoing) {
        mRequestParams.activation_reason = TivCheckStatusToActivationReason(status);
    }
    switch (CurrentActivationReason()) {
        case ACTIVATIONREASON_CLIENT_CERTIFICATE_INVALID:
        case ACTIVATIONREASON_KORU_CERTIFICATE_UPDATE:
            QELLogging::LogInfo(mLogName, "Invalid TIV certificate.");
            break;
        case ACTIVATIONREASON_CLAMP30_DETECTED:
        case ACTIVATIONREASON_FACTORY_RESET:
            QELLogging::LogInfo(mLogName, "No TIV certificate available.");
            break;
        default:
            break;
    }
    if (IsTivDeleteRequired(status)) {
        DeleteTivCertificateFromTrustStore();
    }
    if (!IsTivUpdateRequired(status)) {
        QELLogging::LogInfo(mLogName, "No TIV certificate update needed.");
        StartWaitingForTriggers();
        return;
    }
    QELLogging::LogInfo(mLogName, "TIV certificate update needed.");
    RaiseEvent(kEventStartUpdate, 0, nullptr);
    SetFsmState(&VintrelClientFsm::StartCertificateUpdate, "StartCertificateUpdate");
}

ActivationReason VintrelClientFsm::TivCheckStatusToActivationReason(StatusCode status) {
    switch (status) {
        case StatusCode::Ok:
            return ACTIVATIONREASON_OTHER;
        case StatusCode::NoCertificate:
            if (mFactoryReset) {
                mFactoryReset = false;
                return ACTIVATIONREASON_FACTORY_RESET;
            }
            return ACTIVATIONREASON_CLAMP30_DETECTED;
        case StatusCode::CommonNameMismatch:
            return ACTIVATIONREASON_KORU_CERTIFICATE_UPDATE;
        case StatusCode::PathInvalid:
        case StatusCode::KeyMismatch:
            return ACTIVATIONREASON_CLIENT_CERTIFICATE_INVALID;
        case StatusCode::ExpiresWithinYear:
            return ACTIVATION_REASON_CERT_1YEAR_EXPIRATION;
    }
    QELLogging::LogError(mLogName, "Unknown status code!");
    return ACTIVATIONREASON_OTHER;
}

bool VintrelClientFsm::IsTivDeleteRequired(StatusCode status) const {
    return status >= StatusCode::CommonNameMismatch && status <= StatusCode::KeyMismatch;
}

bool VintrelClientFsm::IsTivUpdateRequired(StatusCode status) const {
    return status == StatusCode::NoCertificate ||
           (status >= StatusCode::CommonNameMismatch && status <= StatusCode::ExpiresWithinYear);
}

int VintrelClientFsm::GetCertificateUpdateTimeout(int retryCount) const {
    switch (retryCount) {
        case 1:
        case 2:
            return 5;
        case 3:
        case 4:
        case 5:
        case 6:
            return 300;
        case 7:
        case 8:
        case 9:
            return 900;
        default:
            return 0;
    }
}

ActivationReason VintrelClientFsm::CurrentActivationReason() const {
    return static_cast<ActivationReason>(mRequestParams.activation_reason);
}

void VintrelClientFsm::StartCertificateUpdate(int eventId, int eventInfo) {
    const bool handled = AsyncEventHandler(eventId, eventInfo);
    if (HasEnded()) {
        return;
    }
    if (eventId == kEventStartUpdate) {
        StartCertificateUpdate();
    } else if (!handled) {
        DefaultEventHandler(eventId, eventInfo);
    }
}

void VintrelClientFsm::StartCertificateUpdate() {
    QELLogging::LogInfo(mLogName, "Updating the TIV Certificate");
    QELLogging::LogInfo(mLogName, "Activation reason: ", StatusToString(CurrentActivationReason()));
    if (!RequestEcuCapabilities()) {
        RaiseTimerEvent(kEventStartUpdate, 0, kEcuCapabilitiesRetryMilliseconds, nullptr);
        return;
    }
    mRequestParams.hw_version = std::move(mEcuHardwareVersion);
    mRequestParams.sw_version = std::move(mEcuSoftwareVersion);
    mRequestParams.part_number = std::move(mEcuPartNumber);
    QELLogging::LogInfo(mLogName, "EcuHardwareVersion: ", mRequestParams.hw_version);
    QELLogging::LogInfo(mLogName, "EcuSoftwareVersion: ", mRequestParams.sw_version);
    QELLogging::LogInfo(mLogName, "EcuPartNumber: ", mRequestParams.part_number);

    const std::vector<std::uint8_t> csr = mHsm->GenerateCsr(mKoruVin);
    if (csr.empty()) {
        QELLogging::LogError(mLogName, "Failed to generate the CSR!");
        StartRetryProcedure();
        return;
    }
    QELLogging::LogInfo(mLogName, "The CSR was generated successfully");

    std::string container = mTiveGenerator->ConstructContainer(csr);
    if (container.empty()) {
        QELLogging::LogError(mLogName, "Failed to create TIVE container!");
        StartRetryProcedure();
        return;
    }
    QELLogging::LogInfo(mLogName, "The TIVE Container was created successfully: '", container, "'");

    mRequestBody = protobuf::CreateProtobuffer(mRequestParams, std::move(container));
    if (mRequestBody.empty()) {
        QELLogging::LogError(mLogName, "Failed to create protobuffer!");
        StartRetryProcedure();
        return;
    }
    QELLogging::LogInfo(mLogName, "Protobuf was created successfully");
    StartCertificateDownload();
}

bool VintrelClientFsm::RequestEcuCapabilities() {
    EcuCapabilities capabilities = mEcuCapabilities->GetEcuCapabilities();
    mEcuHardwareVersion = std::move(capabilities.hardwareVersion);
    mEcuSoftwareVersion = std::move(capabilities.softwareVersion);
    mEcuPartNumber = std::move(capabilities.partNumber);
    if (!mEcuHardwareVersion.empty() && !mEcuSoftwareVersion.empty() && !mEcuPartNumber.empty()) {
        return true;
    }
    QELLogging::LogError(mLogName, "ECU capabilities not available, hardwareVersion: '",
                         mEcuHardwareVersion, "', softwareVersion: '", mEcuSoftwareVersion,
                         "', partNumber: '", mEcuPartNumber, "'. Retrying in ",
                         kEcuCapabilitiesRetryMilliseconds, " milliseconds...");
    return false;
}

void VintrelClientFsm::StartCertificateDownload() {
    RaiseEvent(kEventStartDownload, 0, nullptr);
    SetFsmState(&VintrelClientFsm::FsmStateDownloadCertificate, "FsmStateDownloadCertificate");
}

void VintrelClientFsm::FsmStateDownloadCertificate(int eventId, int eventInfo) {
    const bool handled = AsyncEventHandler(eventId, eventInfo);
    switch (eventId) {
        case kEventBackendResponse:
            HandleBackendResponse();
            break;
        case kEventStartDownload:
        case kEventZemConnector:
        case kEventTlsAlert:
            TestDownload();
            break;
        default:
            if (!handled) {
                DefaultEventHandler(eventId, eventInfo);
            }
            break;
    }
}

void VintrelClientFsm::TestDownload() {
    if (mConnectionState != SCConnectionState::kOnDemand &&
        mConnectionState != SCConnectionState::kConnected) {
        QELLogging::LogInfo(mLogName,
                            "Certificate Download is waiting for correct Connection state...");
        return;
    }
    if (mBackendRequestHandler) {
        QELLogging::LogInfo(mLogName, "Certificate Download is already ongoing");
        return;
    }
    DownloadCertificate();
}

void VintrelClientFsm::DownloadCertificate() {
    QELLogging::LogInfo(mLogName, "Certificate Update started, type = ", mUpdateType);
    if (HasEnded()) {
        return;
    }
    mBackendRequestHandler = mFsmFactory.NewBackendRequestHandlerFsm();
    if (!mBackendRequestHandler->StartFsm(GetDispatcher(), shared_from_this(),
                                          kEventBackendResponse, mRequestBody, mZemConnector,
                                          mUrlData)) {
        mBackendRequestHandler.reset();
        QELLogging::LogError(mLogName, "BackendRequestHandlerFsm start failed!");
        EndCertificateUpdate(false);
    }
}

void VintrelClientFsm::HandleBackendResponse() {
    auto data = TakeEventData<BackendResponseEventData>();
    if (!data) {
        data = std::make_unique<BackendResponseEventData>();
    }
    QELLogging::LogInfo(mLogName,
                        "Backend response received, status: ", static_cast<int>(data->returnCode));
    mBackendRequestHandler.reset();
    switch (data->returnCode) {
        case ReturnCode::kSuccess:
            HandleCertificateResponse(data->response);
            break;
        case ReturnCode::kHttpError:
            HandleErrorResponse(data->response);
            break;
        default:
            QELLogging::LogInfo(mLogName, "Backend connection failed, retrying...");
            StartRetryProcedure();
            break;
    }
}

void VintrelClientFsm::HandleCertificateResponse(const std::string& response) {
    auto data = std::make_unique<TivCertEventData>();
    if (!protobuf::ParseResponse(response, data->response)) {
        QELLogging::LogError(mLogName, "Unable to parse the Response!");
        EndCertificateUpdate(false);
        return;
    }
    QELLogging::LogInfo(mLogName, "Received a TIV Certificate: '", data->response.certificate, "'");
    QELLogging::LogInfo(mLogName, "Delay TIV validation by ", kValidationDelaySeconds,
                        " seconds...");
    RaiseTimerEvent(kEventValidateCertificate, 0, kValidationDelaySeconds * kMillisecondsPerSecond,
                    std::move(data));
    SetFsmState(&VintrelClientFsm::FsmStateCheckAndStoreTiv, "FsmStateCheckAndStoreTiv");
}

void VintrelClientFsm::HandleErrorResponse(const std::string& response) {
    std::string errorText;
    if (protobuf::ParseErrorResponse(response, errorText)) {
        QELLogging::LogInfo(mLogName, "GenericError received!\n", errorText);
    } else {
        QELLogging::LogError(mLogName, "Failed to parse error response");
    }
    EndCertificateUpdate(false);
}

void VintrelClientFsm::FsmStateCheckAndStoreTiv(int eventId, int eventInfo) {
    const bool handled = AsyncEventHandler(eventId, eventInfo);
    if (HasEnded()) {
        return;
    }
    if (eventId == kEventValidateCertificate) {
        ValidateAndStoreCertificate();
    } else if (!handled) {
        DefaultEventHandler(eventId, eventInfo);
    }
}

void VintrelClientFsm::ValidateAndStoreCertificate() {
    const auto data = TakeEventData<TivCertEventData>();
    if (!data || mHsm->CheckTivCertificate(data->response.certificate, mKoruVin)) {
        QELLogging::LogError(mLogName, "Checking the TIV Certificate failed!");
        EndCertificateUpdate(false);
        return;
    }
    QELLogging::LogInfo(mLogName, "The TIV Certificate is valid");
    if (mHsm->StoreTivCertificateToTrustStore(data->response.certificate)) {
        QELLogging::LogError(mLogName, "Storing the TIV Certificate failed!");
        EndCertificateUpdate(false);
        return;
    }
    QELLogging::LogInfo(mLogName, "The TIV Certificate and the Key were stored successfully");
    EndCertificateUpdate(true);
}

void VintrelClientFsm::EndCertificateUpdate(bool success) {
    mRetryCount = 0;
    if (success) {
        QELLogging::LogInfo(mLogName, "EndCertificateUpdate",
                            " The TIV Certificate was successfully updated");
    } else {
        QELLogging::LogError(mLogName, "EndCertificateUpdate",
                             " The TIV Certificate update failed!");
    }
    StartWaitingForTriggers();
}

void VintrelClientFsm::StartRetryProcedure() {
    mRequestBody.clear();
    mRetryOngoing = true;
    ++mRetryCount;
    if (mRetryCount > kMaxRetries) {
        QELLogging::LogInfo(mLogName, "Retry limit exceeded. Stopping...");
        EndCertificateUpdate(false);
        return;
    }
    const int timeout = GetCertificateUpdateTimeout(mRetryCount);
    QELLogging::LogInfo(mLogName, "Retrying in ", timeout, " seconds...");
    RaiseTimerEvent(kEventRetryTimer, 0, timeout * kMillisecondsPerSecond, nullptr);
    SetFsmState(&VintrelClientFsm::FsmRetryProcedure, "FsmRetryProcedure");
}

void VintrelClientFsm::FsmRetryProcedure(int eventId, int eventInfo) {
    const bool handled = AsyncEventHandler(eventId, eventInfo);
    if (HasEnded()) {
        return;
    }
    if (eventId == kEventRetryTimer) {
        StartImmobilizerVinQuery();
    } else if (!handled) {
        DefaultEventHandler(eventId, eventInfo);
    }
}

}  // namespace vintrel
