#include "simulation/client_model.h"

#include <algorithm>
#include <array>
#include <utility>

#include "GenericError_V2.pb.h"
#include "QUBA_CO_KoruVintrelRequest_v1.pb.h"
#include "QUBA_CT_KoruCertificateResponse_v2.pb.h"

namespace simulation {

namespace {

enum EventId : int {
    kCheckServices = 0,
    kCheckTime = 1,
    kStartDownload = 2,
    kBackendResponse = 3,
    kRetryTimer = 4,
    kStartConnector = 5,
    kValidateCertificate = 6,
    kStartUpdate = 7,
    kConnector = 8,
    kClamp = 9,
    kImmobilizerConnection = 10,
    kImmobilizerVin = 11,
    kTlsAlert = 12,
    kShutdown = 13,
};

constexpr int kInfoStatus = 0;
constexpr int kInfoConnection = 2;
constexpr int kInfoUrl = 3;
constexpr int kSessionStarted = 2;
constexpr int kSessionRejected = 3;
constexpr int kNoCertificate = 2;

/// Seconds before the n-th retry.
constexpr std::array<int, 9> kRetryWaits{5, 5, 300, 300, 300, 300, 900, 900, 900};

std::string ReasonText(int reason) {
    static constexpr std::array<const char*, 9> kTexts{
        "ACTIVATIONREASON_CLAMP30_DETECTED",
        "ACTIVATIONREASON_FORCE_REACTIVATION",
        "ACTIVATIONREASON_CLIENT_CERTIFICATE_INVALID",
        "ACTIVATIONREASON_KORU_CERTIFICATE_UPDATE",
        "ACTIVATIONREASON_FACTORY_RESET",
        "ACTIVATIONREASON_OTHER",
        "ACTIVATION_REASON_DATA_TAMPERED",
        "ACTIVATION_REASON_CERT_1YEAR_EXPIRATION",
        "ACTIVATION_REASON_DIAGNOSTIC_ROUTINE"};
    return kTexts.at(static_cast<std::size_t>(reason));
}

std::string OneOrZero(bool value) {
    return value ? "1" : "0";
}

}  // namespace

ClientModel::ClientModel(Oracle& oracle, testing_support::ScriptedUnit& unit,
                         std::shared_ptr<ConnectorModel> connector, bool factoryReset)
    : MachineModel(oracle, "VintrelClientFsm"),
      mUnit(unit),
      mConnector(std::move(connector)),
      mReset(factoryReset) {}

void ClientModel::Construct(bool storeOpens, bool terminatedMeanwhile) {
    mOracle.Expect("I FsmBaseClass: State transition to FsmStateNotStarted");
    Calls({"NewProcessLifecycleAdapter", "SystemTimeIf::Create", "NewHsm"});
    if (terminatedMeanwhile) {
        Termination();
    }
    if (!storeOpens) {
        Row("start: store cannot be opened");
        ReleaseAdapter();
        return;
    }
    Calls({"TiveGeneratorIf::Create", "NewZemConnectorFsm QUBA-GenerateTIVCert-C003"});
    mConnector->Construct();
    Calls({"TlsAlertsIf::Create", "TlsAlerts.Start", "ClampControlIf::Create",
           "ImmobilizerIf::Create", "EcuCapabilitiesIf::Create"});
}

bool ClientModel::Start() {
    Registered();
    if (!mUnit.withAdapter) {
        Row("start: no adapter", {"E Not able initialize ProcessLifecycleAdapter!"});
        Stop();
        return false;
    }
    Calls({"Adapter.Initialize vintrel-client"});
    if (!mConnector->Start(shared_from_this())) {
        Row("start: session rejected");
        Stop();
        return false;
    }
    if (mReset) {
        Row("start: reset", {"I Vintrel Client Factory Reset"});
        if (Delete()) {
            Row("start: reset fails", {"E Factory Reset failed!"});
        }
    }
    Calls({"Clamp.Subscribe", "Immobilizer.Init", "Ecu.Initialize", "SystemTime.Initialize"});
    EndPass("start: done", {});
    return true;
}

void ClientModel::ClampState(bool on) {
    Info("ClampStateChangeCb: state changed to " + OneOrZero(on));
    Post(To(nullptr, kClamp, on ? 1 : 0));
}

void ClientModel::ImmobilizerConnection(bool connected) {
    Info("ImmobilizerConnectionStateChangeCb: state changed to " + OneOrZero(connected));
    Post(To(nullptr, kImmobilizerConnection, connected ? 1 : 0));
}

void ClientModel::ImmobilizerVin(const std::string& vin) {
    Event event = To(nullptr, kImmobilizerVin);
    event.text = vin;
    Post(std::move(event));
}

void ClientModel::TlsAlert(const std::string& oid, int code) {
    Info("TLS alert received for oid: " + oid);
    if (oid == "QUBA-TokenManagement.COTokenRequest") {
        Event event = To(nullptr, kTlsAlert);
        event.text = oid;
        event.number = code;
        Post(std::move(event));
    }
}

void ClientModel::Handle(const Event& event) {
    const std::string before = State();
    const bool common = Common(event);
    // A rejection ends the machine, and the state that it meets still says what it would do.
    if (Ended() && event.id != kConnector) {
        return;
    }
    if (HandleInState(before, event) || Ended()) {
        return;
    }
    if (common) {
        mOracle.Walk(before + ": common");
        return;
    }
    Row("any: unexpected event", {"E Unknown event " + std::to_string(event.id) +
                                  ", eventInfo: " + std::to_string(event.info)});
    Stop();
}

bool ClientModel::HandleInState(const std::string& name, const Event& event) {
    using Method = bool (ClientModel::*)(const Event&);
    static constexpr std::array<std::pair<const char*, Method>, 8> kStates{
        {{"FsmStateWaitTrigger", &ClientModel::WaitTrigger},
         {"FsmStateWaitZemConnector", &ClientModel::WaitConnector},
         {"FsmStateCheckServices", &ClientModel::CheckServices},
         {"FsmStateWaitVin", &ClientModel::WaitVin},
         {"StartCertificateUpdate", &ClientModel::Update},
         {"FsmStateDownloadCertificate", &ClientModel::Download},
         {"FsmStateCheckAndStoreTiv", &ClientModel::CheckAndStore},
         {"FsmRetryProcedure", &ClientModel::Retry}}};
    const auto state = std::find_if(kStates.begin(), kStates.end(),
                                    [&name](const auto& entry) { return name == entry.first; });
    return (this->*state->second)(event);
}

bool ClientModel::Common(const Event& event) {
    switch (event.id) {
        case kConnector:
            HandleConnector(event);
            return true;
        case kClamp:
            mClampOn = event.info == 1;
            Info("HandleClampControlEvent: Clamp 15 has changed state to " + OneOrZero(mClampOn));
            mAlertHandled = mAlertHandled && mClampOn;
            return true;
        case kImmobilizerConnection:
            mImmobilizer = event.info == 1;
            Info("Immobilizer Service connection state has changed to " + OneOrZero(mImmobilizer));
            return true;
        case kTlsAlert:
            Info("Received TLS alert for oid " + event.text + ", code " +
                 std::to_string(event.number));
            mPass.oid = event.text;
            mPass.alert = true;
            return true;
        case kShutdown:
            Row("any: shutdown", {"I Handling Vintrel Client termination request."});
            Stop();
            return true;
        default:
            return false;
    }
}

void ClientModel::HandleConnector(const Event& event) {
    if (event.info == kInfoConnection) {
        static constexpr std::array<const char*, 4> kTexts{"NotAvailable", "Disconnected",
                                                           "Ondemand", "Connected"};
        mConnection = event.number;
        Info(std::string("Connection State changed to ") +
             kTexts.at(static_cast<std::size_t>(mConnection)));
    } else if (event.info == kInfoStatus) {
        static constexpr std::array<const char*, 4> kTexts{
            "Zem-Connector: Idle", "Zem-Connector: Starting",
            "Zem-Connector was started successfully", "Zem-Connector: Rejected"};
        mSession = event.number;
        Info(kTexts.at(static_cast<std::size_t>(mSession)));
        if (mSession == kSessionRejected) {
            Stop();
        }
    }
}

void ClientModel::Stop() {
    Info("OnTerminate");
    mConnector->Stop();
    Calls({"TlsAlerts.Stop"});
    ReleaseAdapter();
    Info("Vintrel Client Terminated.");
    Enter("FsmStateTerminated");
}

void ClientModel::ReleaseAdapter() {
    if (!mUnit.withAdapter) {
        return;
    }
    if (lateTermination) {
        Row("any: termination at the end");
        mOracle.terminationRequested = true;
        Termination();
    }
    Calls({"Adapter released"});
}

bool ClientModel::WaitTrigger(const Event& event) {
    if (event.id == kClamp && mClampOn) {
        Row("wait trigger: clamp on", {"I Vintrel Client triggered by Clamp 15"});
        StartPass();
    } else if (event.id == kClamp) {
        Row("wait trigger: clamp off");
    } else if (event.id != kTlsAlert) {
        return false;
    } else if (!mClampOn) {
        Row("wait trigger: alert, clamp off", {"I TLS Alert ignored, because CLAMP15 is OFF"});
    } else if (mAlertHandled) {
        Row("wait trigger: alert, handled", {"I TLS Alert ignored, already handled once"});
    } else {
        Row("wait trigger: alert", {"I Vintrel Client triggered by TLS Alert"});
        mAlertHandled = true;
        StartPass();
    }
    return true;
}

void ClientModel::StartPass() {
    ++mOracle.passes;
    Raise(kStartConnector);
    Enter("FsmStateWaitZemConnector");
}

bool ClientModel::WaitConnector(const Event& event) {
    if (event.id != kStartConnector && event.id != kConnector) {
        return false;
    }
    if (event.info == kInfoUrl) {
        HandleUrl(event);
    } else if (event.info != kInfoStatus) {
        return false;
    } else if (mSession != kSessionStarted) {
        Row(Ended() ? "wait connector: rejected" : "wait connector: session not started",
            {"I CheckZemConnectorStatus: Wrong ZemConnector session status: " +
             std::to_string(mSession)});
    } else {
        Row("wait connector: query", {"I Get VTTL URL"});
        mConnector->GetUrl();
    }
    return true;
}

void ClientModel::HandleUrl(const Event& event) {
    if (!event.good) {
        Row("wait connector: URL failed", {"E Error received for the URL!"});
    }
    const std::string text = event.good ? event.text : std::string();
    Info("VTTL URL: '" + text + "'");
    if (text.empty()) {
        EndPass("wait connector: URL empty", {"E No URL available"});
        return;
    }
    const auto url = std::find_if(Urls().begin(), Urls().end(),
                                  [&text](const Url& known) { return known.text == text; });
    for (const std::string& line : url->lines) {
        mOracle.Expect(line);
    }
    if (!url->good) {
        EndPass("wait connector: URL invalid", {"E Invalid VTTL URL: '" + text + "'"});
        return;
    }
    Row("wait connector: URL good");
    mPass.destination = url->destination;
    Raise(kCheckServices);
    Enter("FsmStateCheckServices");
}

bool ClientModel::CheckServices(const Event& event) {
    if (event.id != kCheckServices && event.id != kImmobilizerConnection) {
        return false;
    }
    mOracle.Drop(this, kCheckServices);
    if (mImmobilizer) {
        Row("check services: connected", {"I Service check OK, continue."});
        QueryVin();
    } else {
        Row("check services: not connected",
            {"I ServiceStatusCheck: Immobilizer service is not available"});
    }
    return true;
}

void ClientModel::QueryVin() {
    mKoruVin.clear();
    Info("Requesting VIN from the Immobilizer Service.");
    Calls({"GetVin"});
    ++owesVin;
    Enter("FsmStateWaitVin");
}

bool ClientModel::WaitVin(const Event& event) {
    if (event.id == kImmobilizerVin) {
        HandleVin(event.text);
    } else if (event.id == kCheckTime) {
        HandleCheckTime();
    }
    return event.id == kImmobilizerVin || event.id == kCheckTime;
}

void ClientModel::HandleVin(const std::string& vin) {
    if (vin.empty()) {
        EndPass("wait VIN: immobilizer empty",
                {"E Received an empty VIN from the Immobilizer Service."});
        return;
    }
    Info("Received VIN from the Immobilizer Service: " + vin);
    Calls({"GetKoruVin"});
    mKoruVin = mUnit.koruVin;
    if (mKoruVin.empty()) {
        EndPass("wait VIN: KORU empty", {"E No VIN received from the KORU."});
        return;
    }
    Info("Received VIN from the KORU: " + mKoruVin);
    if (vin != mKoruVin) {
        Row("wait VIN: mismatch",
            {"E Immobilizer VIN (" + vin + ") and KORU VIN (" + mKoruVin + ") do not match!",
             "E Precheck Failed!"});
        Delete();
        EndPass({}, {});
        return;
    }
    Row("wait VIN: match",
        {"I Precheck was completed successfully", "I Immobilizer VIN and KORU VIN match"});
    Raise(kCheckTime);
}

void ClientModel::HandleCheckTime() {
    if (!mUnit.timeSet) {
        Row("wait VIN: time not set",
            {"I FsmStateWaitVin: System time is not set. Retrying in 10 seconds..."});
        Timer(kCheckTime, 10000);
    } else if (!mPass.alert) {
        Judge();
    } else if (mPass.retryOngoing) {
        Row("wait VIN: alert retry",
            {"I Retry ongoing. Keep currect ActivationReason: " + ReasonText(mReason)});
        StartUpdate();
    } else {
        Row("wait VIN: alert pass");
        Calls({"CheckTrustStore"});
        mReason = static_cast<int>(mUnit.status) == kNoCertificate ? 0 : 1;
        StartUpdate();
    }
}

void ClientModel::Judge() {
    Calls({"CheckTrustStore"});
    const int status = static_cast<int>(mUnit.status);
    if (mPass.retryOngoing) {
        Row("wait VIN: normal retry");
    } else {
        mReason = ReasonOf(status);
    }
    if (mReason == 2 || mReason == 3) {
        Info("Invalid TIV certificate.");
    } else if (mReason == 0 || mReason == 4) {
        Info("No TIV certificate available.");
    }
    const bool remove = status >= 4 && status <= 6;
    if (remove) {
        Delete();
    }
    if (status != kNoCertificate && (status < 4 || status > 7)) {
        EndPass("wait VIN: no update", {"I No TIV certificate update needed."});
        return;
    }
    Row(remove ? "wait VIN: update, delete" : "wait VIN: update, keep",
        {"I TIV certificate update needed."});
    StartUpdate();
}

int ClientModel::ReasonOf(int status) {
    switch (status) {
        case 0:
            return 5;
        case kNoCertificate:
            Row(mReset ? "wait VIN: reason of the reset" : "wait VIN: none stored");
            return std::exchange(mReset, false) ? 4 : 0;
        case 4:
            return 3;
        case 5:
        case 6:
            return 2;
        case 7:
            return 7;
        default:
            Row("wait VIN: unknown status", {"E Unknown status code!"});
            return 5;
    }
}

void ClientModel::StartUpdate() {
    Raise(kStartUpdate);
    Enter("StartCertificateUpdate");
}

bool ClientModel::Update(const Event& event) {
    if (event.id != kStartUpdate) {
        return false;
    }
    Info("Updating the TIV Certificate");
    Info("Activation reason: " + ReasonText(mReason));
    const vintrel::EcuCapabilities& ecu = mUnit.ecuCapabilities;
    if (ecu.hardwareVersion.empty() || ecu.softwareVersion.empty() || ecu.partNumber.empty()) {
        Row("update: ECU data missing",
            {"E ECU capabilities not available, hardwareVersion: '" + ecu.hardwareVersion +
             "', softwareVersion: '" + ecu.softwareVersion + "', partNumber: '" + ecu.partNumber +
             "'. Retrying in 10000 milliseconds..."});
        Timer(kStartUpdate, 10000);
        return true;
    }
    Info("EcuHardwareVersion: " + ecu.hardwareVersion);
    Info("EcuSoftwareVersion: " + ecu.softwareVersion);
    Info("EcuPartNumber: " + ecu.partNumber);
    Calls({"GenerateCsr " + mKoruVin});
    if (mUnit.csr.empty()) {
        StartRetry("update: no CSR", "E Failed to generate the CSR!");
        return true;
    }
    Info("The CSR was generated successfully");
    Calls({"ConstructContainer"});
    if (mUnit.container.empty()) {
        StartRetry("update: no container", "E Failed to create TIVE container!");
        return true;
    }
    Row("update: done", {"I The TIVE Container was created successfully: '" + mUnit.container + "'",
                         "I Protobuf was created successfully"});
    mPass.body = RequestBody();
    Raise(kStartDownload);
    Enter("FsmStateDownloadCertificate");
    return true;
}

std::string ClientModel::RequestBody() const {
    domain::backend::proto::QUBACOKoruVintrelRequestV1 request;
    request.set_activation_reason(mReason);
    request.set_csr_container(mUnit.container);
    request.set_operationtypeid(mPass.oid);
    auto& ecu = *request.mutable_ecu_capability();
    ecu.set_diagnostic_address("C003");
    ecu.set_hw_version(mUnit.ecuCapabilities.hardwareVersion);
    ecu.set_sw_version(mUnit.ecuCapabilities.softwareVersion);
    ecu.set_part_number(mUnit.ecuCapabilities.partNumber);
    request.mutable_sim_card_data();
    return request.SerializeAsString();
}

bool ClientModel::Download(const Event& event) {
    if (event.id == kBackendResponse) {
        HandleAnswer(event);
        return true;
    }
    if (event.id == kStartDownload || event.id == kConnector || event.id == kTlsAlert) {
        TestDownload();
        return true;
    }
    return false;
}

void ClientModel::TestDownload() {
    if (mConnection != 2 && mConnection != 3) {
        Row("download: connection not usable",
            {"I Certificate Download is waiting for correct Connection state..."});
    } else if (mExchange) {
        Row("download: exchange running", {"I Certificate Download is already ongoing"});
    } else {
        StartDownload();
    }
}

void ClientModel::StartDownload() {
    Info("Certificate Update started, type = " + OneOrZero(mPass.alert));
    if (Ended()) {
        // It says so, but a machine that has stopped starts nothing.
        Row("download: rejected");
        return;
    }
    if (!mUnit.exchangeStarts) {
        mOracle.Expect("I ScriptedExchangeFsm: State transition to FsmStateNotStarted");
        EndUpdate("download: start refused", {"E BackendRequestHandlerFsm start failed!"});
        return;
    }
    Row("download: start");
    mExchange = true;
    mOracle.exchange = std::make_shared<ExchangeModel>(mOracle, shared_from_this(), *mConnector);
    mOracle.machines.resize(2);
    mOracle.machines.push_back(mOracle.exchange);
    mOracle.exchange->Start(mPass.body, mPass.destination);
}

void ClientModel::HandleAnswer(const Event& event) {
    Info("Backend response received, status: " + std::to_string(event.number));
    mExchange = false;
    if (event.number == 9) {
        domain::backend::proto::GenericErrorV2 error;
        if (error.ParseFromString(event.text)) {
            EndUpdate(
                "download: error parsed",
                {"I GenericError received!\nErrorCode: " + std::to_string(error.error_code()) +
                 "\nErrorDescription: " + error.error_description() +
                 "\nTransactionId: " + error.transaction_id() + "\n"});
        } else {
            EndUpdate("download: error unparsable", {"E Failed to parse error response"});
        }
        return;
    }
    if (event.number != 0) {
        StartRetry("download: retry", "I Backend connection failed, retrying...");
        return;
    }
    domain::backend::proto::QUBACTKoruCertificateResponseV2 response;
    if (!response.ParseFromString(event.text)) {
        EndUpdate("download: unparsable certificate", {"E Unable to parse the Response!"});
        return;
    }
    Row("download: certificate", {"I Received a TIV Certificate: '" + response.certificate() + "'",
                                  "I Delay TIV validation by 3 seconds..."});
    Event validate = To(shared_from_this(), kValidateCertificate);
    validate.text = response.certificate();
    mOracle.RaiseTimer(std::move(validate), 3000);
    Enter("FsmStateCheckAndStoreTiv");
}

bool ClientModel::CheckAndStore(const Event& event) {
    if (event.id != kValidateCertificate) {
        return false;
    }
    Calls({"Check " + event.text + " " + mKoruVin});
    if (mUnit.checkFails) {
        EndUpdate("store: check fails", {"E Checking the TIV Certificate failed!"});
        return true;
    }
    Info("The TIV Certificate is valid");
    Calls({"Store " + event.text});
    if (mUnit.storeFails) {
        EndUpdate("store: storing fails", {"E Storing the TIV Certificate failed!"});
    } else {
        EndUpdate("store: done", {"I The TIV Certificate and the Key were stored successfully"},
                  true);
    }
    return true;
}

void ClientModel::StartRetry(std::string_view row, const std::string& line) {
    Row(row, {line});
    mPass.retryOngoing = true;
    const auto retry = static_cast<std::size_t>(mPass.retries++);
    if (retry == kRetryWaits.size()) {
        EndUpdate("retry: limit", {"I Retry limit exceeded. Stopping..."});
        return;
    }
    Info("Retrying in " + std::to_string(kRetryWaits.at(retry)) + " seconds...");
    Timer(kRetryTimer, kRetryWaits.at(retry) * 1000);
    Enter("FsmRetryProcedure");
}

bool ClientModel::Retry(const Event& event) {
    if (event.id != kRetryTimer) {
        return false;
    }
    Row("retry: again");
    ++mOracle.passes;
    QueryVin();
    return true;
}

void ClientModel::EndUpdate(std::string_view row, std::initializer_list<std::string> lines,
                            bool success) {
    Row(row, lines);
    EndPass({}, {success ? "I EndCertificateUpdate The TIV Certificate was successfully updated"
                         : "E EndCertificateUpdate The TIV Certificate update failed!"});
}

void ClientModel::EndPass(std::string_view row, std::initializer_list<std::string> lines) {
    Row(row, lines);
    mPass = {};
    Info("Vintrel Client waiting for a trigger");
    Enter("FsmStateWaitTrigger");
}

bool ClientModel::Delete() {
    Calls({"Delete"});
    Row({}, {mUnit.deleteFails ? "E Deleting the TIV certificate failed!"
                               : "I The TIV Certificate was deleted successfully"});
    return mUnit.deleteFails;
}

}  // namespace simulation
