#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "client/activation_reason.h"
#include "client/certificate_messages.h"
#include "client/clamp_control_if.h"
#include "client/ecu_capabilities_if.h"
#include "client/fsm_factory.h"
#include "client/hsm_if.h"
#include "client/immobilizer_if.h"
#include "client/status_code.h"
#include "client/system_time_if.h"
#include "client/tive_generator_if.h"
#include "client/tls_alerts_if.h"
#include "client/url_data.h"
#include "client/vintrel_client_cb_if.h"
#include "client/vintrel_client_fsm_if.h"

namespace vintrel {

/// The enrolment client: waits for a trigger, decides whether the client certificate must be
/// renewed, and drives the renewal with its retries.
///
/// The machine is idle in `FsmStateWaitTrigger` most of its life. A pass begins there with a
/// trigger, and every path of it comes back there; docs/client-machine.md shows the states, what
/// each waits for and what ends that wait. It has no target.
///
/// All of it runs on the dispatcher thread, except for the callbacks at the end of the public
/// part: they may come from any thread from the constructor on, touch nothing but their arguments
/// and the machine's name, and cross over as asynchronous events. One that comes before
/// `StartFsm` or after the end of the machine is lost, with a line in the log; a termination
/// request is never lost while the machine lives.
class VintrelClientFsm : public VintrelClientFsmIf,
                         public VintrelClientCbIf,
                         public process_lifecycle_adapter::ProcessLifecycleAdapterCallbackIf,
                         public TlsAlertsCbIf {
public:
    /// Builds all collaborators and starts to listen for TLS alerts. `factory` must outlive the
    /// machine. With `factoryReset`, `StartFsm` deletes the stored certificate, and the next
    /// update because of a missing certificate gives the backend that reason. Throws what the
    /// collaborators throw.
    VintrelClientFsm(const FsmFactory& factory, bool factoryReset);
    VintrelClientFsm(const VintrelClientFsm&) = delete;
    VintrelClientFsm& operator=(const VintrelClientFsm&) = delete;
    ~VintrelClientFsm() override = default;

    bool StartFsm(std::shared_ptr<fsm::EventDispatcher> dispatcher) override;

    void ImmobilizerVinReceivedCb(std::string vin) override;
    void ImmobilizerConnectionStateChangeCb(bool connected) override;
    void ClampStateChangeCb(bool clamp15On) override;
    void ProcessLifecycleAdapterTerminate() override;
    int ProcessLifecycleAdapterGetHealthStatus() override;
    void TlsAlertNotifyCb(std::string oid, tls_alert_if::ETlsAlertCode code) override;

protected:
    void OnTerminate() override;

private:
    enum EventId : int {
        kEventCheckServices = 0,
        kEventCheckTime = 1,
        kEventStartDownload = 2,
        kEventBackendResponse = 3,
        kEventRetryTimer = 4,
        kEventStartConnector = 5,
        kEventValidateCertificate = 6,
        kEventStartUpdate = 7,
        kEventZemConnector = 8,
        kEventClampState = 9,
        kEventImmobilizerConnection = 10,
        kEventImmobilizerVin = 11,
        kEventTlsAlert = 12,
        kEventShutdown = 13,
    };

    enum UpdateType : std::int32_t {
        kUpdateTypeNormal = 0,
        kUpdateTypeTlsAlert = 1,
    };

    class StringEventData : public fsm::FsmEventData {
    public:
        std::string text;
    };

    class TlsAlertData : public fsm::FsmEventData {
    public:
        std::string oid;
        tls_alert_if::ETlsAlertCode code{};
    };

    class TivCertEventData : public fsm::FsmEventData {
    public:
        protobuf::CertificateResponse response;
    };

    using SCConnectionState = ZemConnectorFsmIf::SCConnectionState;

    static const char* to_string(SCConnectionState state);

    bool InitializePLA();

    void FsmStateWaitTrigger(int eventId, int eventInfo);
    void FsmStateWaitZemConnector(int eventId, int eventInfo);
    void FsmStateCheckServices(int eventId, int eventInfo);
    void FsmStateWaitVin(int eventId, int eventInfo);
    void StartCertificateUpdate(int eventId, int eventInfo);
    void FsmStateDownloadCertificate(int eventId, int eventInfo);
    void FsmStateCheckAndStoreTiv(int eventId, int eventInfo);
    void FsmRetryProcedure(int eventId, int eventInfo);

    bool AsyncEventHandler(int eventId, int eventInfo);
    void DefaultEventHandler(int eventId, int eventInfo);
    void HandleClampControlEvent(int eventId, int eventInfo);
    void HandleZemConnectorEvent(int eventInfo);
    void HandleZemConnectorSessionStatus(zem_connector::SessionStatus status);
    void HandleZemConnectorConnectionState(SCConnectionState state);
    void HandleImmobilizerConnectionEvent(int eventInfo);
    void HandleTlsAlert();
    void HandleShutdownEvent();

    void StartPass();
    void HandleTlsAlertTrigger();
    void HandleInvocationUrl();
    std::pair<std::string, std::int32_t> HandleInvocationUrlEvent();
    void HandleImmobilizerVin();
    void HandleCheckTime();
    bool CheckZemConnectorStatus() const;
    bool ServiceStatusCheck();
    bool PreCheck() const;
    void StartImmobilizerVinQuery();
    void StartWaitingForTriggers();
    bool DeleteTivCertificateFromTrustStore() const;

    void TruststoreTivValidityCheck();
    void FixActivationReasonOfTlsAlertPass();
    ActivationReason TivCheckStatusToActivationReason(StatusCode status);
    bool IsTivDeleteRequired(StatusCode status) const;
    bool IsTivUpdateRequired(StatusCode status) const;
    int GetCertificateUpdateTimeout(int retryCount) const;
    void StartCertificateUpdate();
    bool RequestEcuCapabilities();
    void StartCertificateDownload();
    void TestDownload();
    void DownloadCertificate();
    void HandleBackendResponse();
    void HandleCertificateResponse(const std::string& response);
    void HandleErrorResponse(const std::string& response);
    void ValidateAndStoreCertificate();
    void EndCertificateUpdate(bool success);
    void StartRetryProcedure();

    ActivationReason CurrentActivationReason() const;

    /// True once the machine has stopped: a state that has just handed its event to
    /// `AsyncEventHandler` must then leave everything alone.
    bool HasEnded() const;

    zem_connector::SessionStatus mZemSessionStatus{zem_connector::SessionStatus::kIdle};
    SCConnectionState mConnectionState{SCConnectionState::kNotAvailable};
    bool mImmobilizerConnected{false};
    bool mTlsAlertHandled{false};
    bool mClamp15On{false};
    std::int32_t mUpdateType{kUpdateTypeNormal};
    bool mRetryOngoing{false};
    std::shared_ptr<BackendRequestHandlerFsmIf> mBackendRequestHandler;
    std::shared_ptr<ImmobilizerIf> mImmobilizer;
    std::shared_ptr<ClampControlIf> mClampControl;
    std::shared_ptr<EcuCapabilitiesIf> mEcuCapabilities;
    std::shared_ptr<HsmIf> mHsm;
    std::shared_ptr<TiveGeneratorIf> mTiveGenerator;
    std::shared_ptr<ZemConnectorFsmIf> mZemConnector;
    std::shared_ptr<process_lifecycle_adapter::ProcessLifecycleAdapterIf> mProcessLifecycleAdapter;
    std::shared_ptr<TlsAlertsIf> mTlsAlerts;
    std::shared_ptr<SystemTimeIf> mSystemTime;
    bool mFactoryReset{false};
    bool mClamp15OffSeen{false};
    std::string mUrl;
    std::string mImmobilizerVin;
    std::string mKoruVin;
    std::string mRequestBody;
    UrlData mUrlData;
    std::int32_t mRetryCount{0};
    const FsmFactory& mFsmFactory;
    protobuf::CertificateRequestParams mRequestParams;
    std::string mEcuHardwareVersion;
    std::string mEcuSoftwareVersion;
    std::string mEcuPartNumber;

    /// Set beside the shutdown event, which is lost if it comes before `StartFsm` or while the
    /// asynchronous queue is full; the machine looks at it with every event.
    std::atomic<bool> mTerminationRequested{false};
};

}  // namespace vintrel
