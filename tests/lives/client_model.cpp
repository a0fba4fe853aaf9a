#include "lives/client_model.h"

#include <algorithm>
#include <array>
#include <utility>

#include "GenericError_V2.pb.h"
#include "QUBA_CO_KoruVintrelRequest_v1.pb.h"
#include "QUBA_CT_KoruCertificateResponse_v2.pb.h"
#include "client/activation_reason.h"

namespace lives {

namespace {

constexpr int kCheckServices = 0;
constexpr int kCheckTime = 1;
constexpr int kStartDownload = 2;
constexpr int kBackendResponse = 3;
constexpr int kRetryTimer = 4;
constexpr int kStartConnector = 5;
constexpr int kValidateCertificate = 6;
constexpr int kStartUpdate = 7;
constexpr int kConnector = 8;
constexpr int kClamp = 9;
constexpr int kImmobilizerConnection = 10;
constexpr int kImmobilizerVin = 11;
constexpr int kTlsAlert = 12;
constexpr int kShutdown = 13;

constexpr int kInfoStatus = 0;
constexpr int kInfoConnection = 2;
constexpr int kInfoUrl = 3;
constexpr int kSessionStarted = 2;
constexpr int kSessionRejected = 3;
constexpr int kNoCertificate = 2;

/// Seconds before the n-th retry.
constexpr std::array<int, 9> kRetryWaits{5, 5, 300, 300, 300, 300, 900, 900, 900};

const std::array<std::string, 4> kConnectionTexts{"NotAvailable", "Disconnected", "Ondemand",
                                                  "Connected"};
const std::array<std::string, 4> kSessionTexts{": Idle", ": Starting", " was started successfully",
                                               ": Rejected"};

const std::string kUpdateFailed = "E EndCertificateUpdate The TIV Certificate update failed!";

std::string ReasonText(int reason) {
    return vintrel::StatusToString(static_cast<vintrel::ActivationReason>(reason));
}

std::string OneOrZero(bool value) {
    return value ? "1" : "0";
}

}  // namespace

/// What the states do about the events that they have a row for.
const ClientModel::Row ClientModel::kRows[] = {
    {kClamp, "FsmStateWaitTrigger", &ClientModel::TriggerByClamp},
    {kTlsAlert, "FsmStateWaitTrigger", &ClientModel::TriggerByAlert},
    {kStartConnector, "FsmStateWaitZemConnector", &ClientModel::WaitConnector},
    {kConnector, "FsmStateWaitZemConnector", &ClientModel::WaitConnector},
    {kCheckServices, "FsmStateCheckServices", &ClientModel::CheckServices},
    {kImmobilizerConnection, "FsmStateCheckServices", &ClientModel::CheckServices},
    {kImmobilizerVin, "FsmStateWaitVin", &ClientModel::HandleVin},
    {kCheckTime, "FsmStateWaitVin", &ClientModel::HandleCheckTime},
    {kStartUpdate, "StartCertificateUpdate", &ClientModel::Update},
    {kBackendResponse, "FsmStateDownloadCertificate", &ClientModel::HandleAnswer},
    {kStartDownload, "FsmStateDownloadCertificate", &ClientModel::TestDownload},
    {kConnector, "FsmStateDownloadCertificate", &ClientModel::TestDownload},
    {kTlsAlert, "FsmStateDownloadCertificate", &ClientModel::TestDownload},
    {kValidateCertificate, "FsmStateCheckAndStoreTiv", &ClientModel::CheckAndStore},
    {kRetryTimer, "FsmRetryProcedure", &ClientModel::Retry},
};

void ClientModel::Construct(bool storeOpens, bool terminatedMeanwhile) {
    mOracle.Expect("I FsmBaseClass: State transition to FsmStateNotStarted");
    Shows({"> NewProcessLifecycleAdapter", "> SystemTimeIf::Create", "> NewHsm"});
    if (terminatedMeanwhile) {
        Termination();
    }
    if (!storeOpens) {
        ReleaseAdapter();
        return;
    }
    Shows({"> TiveGeneratorIf::Create", "> NewZemConnectorFsm QUBA-GenerateTIVCert-C003"});
    mConnector->Construct();
    Shows({"> TlsAlertsIf::Create", "> TlsAlerts.Start", "> ClampControlIf::Create",
           "> ImmobilizerIf::Create", "> EcuCapabilitiesIf::Create"});
}

bool ClientModel::Start() {
    Registered();
    if (!mUnit.withAdapter) {
        Shows({"E Not able initialize ProcessLifecycleAdapter!"});
        Stop();
        return false;
    }
    Shows({"> Adapter.Initialize vintrel-client"});
    if (!mConnector->Start(shared_from_this())) {
        Stop();
        return false;
    }
    if (mReset) {
        Shows({"I Vintrel Client Factory Reset"});
        if (Delete()) {
            Shows({"E Factory Reset failed!"});
        }
    }
    Shows(
        {"> Clamp.Subscribe", "> Immobilizer.Init", "> Ecu.Initialize", "> SystemTime.Initialize"});
    EndPass();
    return true;
}

void ClientModel::ClampState(bool on) {
    Shows({"I ClampStateChangeCb: state changed to " + OneOrZero(on)});
    Post({nullptr, kClamp, on ? 1 : 0});
}

void ClientModel::ImmobilizerConnection(bool connected) {
    Shows({"I ImmobilizerConnectionStateChangeCb: state changed to " + OneOrZero(connected)});
    Post({nullptr, kImmobilizerConnection, connected ? 1 : 0});
}

void ClientModel::ImmobilizerVin(const std::string& vin) {
    Post({nullptr, kImmobilizerVin, 0, 0, false, vin});
}

void ClientModel::TlsAlert(const std::string& oid, int code) {
    Shows({"I TLS alert received for oid: " + oid});
    if (oid == "QUBA-TokenManagement.COTokenRequest") {
        Post({nullptr, kTlsAlert, 0, code, false, oid});
    }
}

void ClientModel::Termination() {
    Post({nullptr, kShutdown});
}

void ClientModel::Handle(const Event& event) {
    const std::string before = State();
    const bool common = Common(event);
    // A rejection ends the machine, and the state that it meets still says what it would do.
    if (Ended() && event.id != kConnector) {
        return;
    }
    const auto* row = std::find_if(std::begin(kRows), std::end(kRows), [&](const Row& candidate) {
        return candidate.event == event.id && before == candidate.state;
    });
    if (row != std::end(kRows)) {
        (this->*row->method)(event);
    } else if (!common) {
        Shows({"E Unknown event " + std::to_string(event.id) +
               ", eventInfo: " + std::to_string(event.info)});
        Stop();
    }
}

/// False if the event means nothing by itself.
bool ClientModel::Common(const Event& event) {
    const bool on = event.info == 1;
    if (event.id == kConnector) {
        HandleConnector(event);
    } else if (event.id == kClamp) {
        mClampOn = on;
        mAlertHandled = mAlertHandled && on;
        Shows({"I HandleClampControlEvent: Clamp 15 has changed state to " + OneOrZero(on)});
    } else if (event.id == kImmobilizerConnection) {
        mImmobilizer = on;
        Shows({"I Immobilizer Service connection state has changed to " + OneOrZero(on)});
    } else if (event.id == kTlsAlert) {
        Shows({"I Received TLS alert for oid " + event.text + ", code " +
               std::to_string(event.number)});
        mPass.oid = event.text;
        mPass.alert = true;
    } else if (event.id == kShutdown) {
        Shows({"I Handling Vintrel Client termination request."});
        Stop();
    } else {
        return false;
    }
    return true;
}

void ClientModel::HandleConnector(const Event& event) {
    const auto number = static_cast<std::size_t>(event.number);
    if (event.info == kInfoConnection) {
        mConnection = event.number;
        Shows({"I Connection State changed to " + kConnectionTexts.at(number)});
    } else if (event.info == kInfoStatus) {
        mSession = event.number;
        Shows({"I Zem-Connector" + kSessionTexts.at(number)});
        if (mSession == kSessionRejected) {
            Stop();
        }
    }
}

void ClientModel::Stop() {
    Shows({"I OnTerminate"});
    mConnector->Stop();
    Shows({"> TlsAlerts.Stop"});
    ReleaseAdapter();
    Shows({"I Vintrel Client Terminated."});
    Enter("FsmStateTerminated");
}

void ClientModel::ReleaseAdapter() {
    if (!mUnit.withAdapter) {
        return;
    }
    if (lateTermination) {
        mOracle.terminationRequested = true;
        Termination();
    }
    Shows({"> Adapter released"});
}

void ClientModel::TriggerByClamp(const Event&) {
    if (mClampOn) {
        Shows({"I Vintrel Client triggered by Clamp 15"});
        StartPass();
    }
}

void ClientModel::TriggerByAlert(const Event&) {
    if (!mClampOn) {
        Shows({"I TLS Alert ignored, because CLAMP15 is OFF"});
    } else if (std::exchange(mAlertHandled, true)) {
        Shows({"I TLS Alert ignored, already handled once"});
    } else {
        Shows({"I Vintrel Client triggered by TLS Alert"});
        StartPass();
    }
}

void ClientModel::StartPass() {
    ++mOracle.passes;
    Enter("FsmStateWaitZemConnector", kStartConnector);
}

void ClientModel::WaitConnector(const Event& event) {
    if (event.info == kInfoUrl) {
        HandleUrl(event);
    } else if (event.info == kInfoStatus && mSession == kSessionStarted) {
        Shows({"I Get VTTL URL"});
        mConnector->GetUrl();
    } else if (event.info == kInfoStatus) {
        Shows({"I CheckZemConnectorStatus: Wrong ZemConnector session status: " +
               std::to_string(mSession)});
    }
}

void ClientModel::HandleUrl(const Event& event) {
    if (!event.good) {
        Shows({"E Error received for the URL!"});
    }
    const std::string text = event.good ? event.text : std::string();
    Shows({"I VTTL URL: '" + text + "'"});
    if (text.empty()) {
        EndPass({"E No URL available"});
        return;
    }
    const auto url = std::find_if(kUrls.begin(), kUrls.end(),
                                  [&text](const Url& known) { return known.text == text; });
    for (const std::string& line : url->lines) {
        mOracle.Expect(line);
    }
    if (!url->good) {
        EndPass({"E Invalid VTTL URL: '" + text + "'"});
        return;
    }
    mPass.destination = url->destination;
    Enter("FsmStateCheckServices", kCheckServices);
}

void ClientModel::CheckServices(const Event&) {
    mOracle.Drop(this, kCheckServices);
    if (mImmobilizer) {
        Shows({"I Service check OK, continue."});
        QueryVin();
    } else {
        Shows({"I ServiceStatusCheck: Immobilizer service is not available"});
    }
}

void ClientModel::QueryVin() {
    mKoruVin.clear();
    Shows({"I Requesting VIN from the Immobilizer Service.", "> GetVin"});
    ++owesVin;
    Enter("FsmStateWaitVin");
}

void ClientModel::HandleVin(const Event& event) {
    const std::string& vin = event.text;
    if (vin.empty()) {
        EndPass({"E Received an empty VIN from the Immobilizer Service."});
        return;
    }
    Shows({"I Received VIN from the Immobilizer Service: " + vin, "> GetKoruVin"});
    mKoruVin = mUnit.koruVin;
    if (mKoruVin.empty()) {
        EndPass({"E No VIN received from the KORU."});
        return;
    }
    Shows({"I Received VIN from the KORU: " + mKoruVin});
    if (vin != mKoruVin) {
        Shows({"E Immobilizer VIN (" + vin + ") and KORU VIN (" + mKoruVin + ") do not match!",
               "E Precheck Failed!"});
        Delete();
        EndPass();
        return;
    }
    Shows({"I Precheck was completed successfully", "I Immobilizer VIN and KORU VIN match"});
    Raise(kCheckTime);
}

void ClientModel::HandleCheckTime(const Event&) {
    if (!mUnit.timeSet) {
        Shows({"I FsmStateWaitVin: System time is not set. Retrying in 10 seconds..."});
        Timer(kCheckTime, 10000);
    } else if (!mPass.alert) {
        Judge();
    } else if (mPass.retryOngoing) {
        Shows({"I Retry ongoing. Keep currect ActivationReason: " + ReasonText(mReason)});
        Enter("StartCertificateUpdate", kStartUpdate);
    } else {
        Shows({"> CheckTrustStore"});
        mReason = static_cast<int>(mUnit.status) == kNoCertificate ? 0 : 1;
        Enter("StartCertificateUpdate", kStartUpdate);
    }
}

void ClientModel::Judge() {
    Shows({"> CheckTrustStore"});
    const int status = static_cast<int>(mUnit.status);
    if (!mPass.retryOngoing) {
        mReason = ReasonOf(status);
    }
    if (mReason == 2 || mReason == 3) {
        Shows({"I Invalid TIV certificate."});
    } else if (mReason == 0 || mReason == 4) {
        Shows({"I No TIV certificate available."});
    }
    if (status >= 4 && status <= 6) {
        Delete();
    }
    if (status != kNoCertificate && (status < 4 || status > 7)) {
        EndPass({"I No TIV certificate update needed."});
        return;
    }
    Shows({"I TIV certificate update needed."});
    Enter("StartCertificateUpdate", kStartUpdate);
}

int ClientModel::ReasonOf(int status) {
    static constexpr std::array<int, 8> kReasons{5, 5, 0, 5, 3, 2, 2, 7};
    if (status == kNoCertificate && std::exchange(mReset, false)) {
        return 4;
    }
    if (status == 1 || status == 3 || status > 7) {
        Shows({"E Unknown status code!"});
        return 5;
    }
    return kReasons.at(static_cast<std::size_t>(status));
}

void ClientModel::Update(const Event&) {
    Shows({"I Updating the TIV Certificate", "I Activation reason: " + ReasonText(mReason)});
    const vintrel::EcuCapabilities& ecu = mUnit.ecu;
    if (ecu.hardwareVersion.empty() || ecu.softwareVersion.empty() || ecu.partNumber.empty()) {
        Shows({"E ECU capabilities not available, hardwareVersion: '" + ecu.hardwareVersion +
               "', softwareVersion: '" + ecu.softwareVersion + "', partNumber: '" + ecu.partNumber +
               "'. Retrying in 10000 milliseconds..."});
        Timer(kStartUpdate, 10000);
        return;
    }
    Shows({"I EcuHardwareVersion: " + ecu.hardwareVersion,
           "I EcuSoftwareVersion: " + ecu.softwareVersion, "I EcuPartNumber: " + ecu.partNumber,
           "> GenerateCsr " + mKoruVin});
    if (mUnit.csr.empty()) {
        StartRetry("E Failed to generate the CSR!");
        return;
    }
    Shows({"I The CSR was generated successfully", "> ConstructContainer"});
    if (mUnit.container.empty()) {
        StartRetry("E Failed to create TIVE container!");
        return;
    }
    Shows({"I The TIVE Container was created successfully: '" + mUnit.container + "'",
           "I Protobuf was created successfully"});
    mPass.body = RequestBody();
    Enter("FsmStateDownloadCertificate", kStartDownload);
}

std::string ClientModel::RequestBody() const {
    domain::backend::proto::QUBACOKoruVintrelRequestV1 request;
    request.set_activation_reason(mReason);
    request.set_csr_container(mUnit.container);
    request.set_operationtypeid(mPass.oid);
    auto& ecu = *request.mutable_ecu_capability();
    ecu.set_diagnostic_address("C003");
    ecu.set_hw_version(mUnit.ecu.hardwareVersion);
    ecu.set_sw_version(mUnit.ecu.softwareVersion);
    ecu.set_part_number(mUnit.ecu.partNumber);
    request.mutable_sim_card_data();
    return request.SerializeAsString();
}

void ClientModel::TestDownload(const Event&) {
    if (mConnection != 2 && mConnection != 3) {
        Shows({"I Certificate Download is waiting for correct Connection state..."});
    } else if (mExchange) {
        Shows({"I Certificate Download is already ongoing"});
    } else {
        StartDownload();
    }
}

void ClientModel::StartDownload() {
    Shows({"I Certificate Update started, type = " + OneOrZero(mPass.alert)});
    // It says so, but a machine that has stopped starts nothing.
    if (Ended()) {
        return;
    }
    if (!mUnit.exchangeStarts) {
        mOracle.Expect("I ScriptedExchangeFsm: State transition to FsmStateNotStarted");
        EndPass({"E BackendRequestHandlerFsm start failed!", kUpdateFailed});
        return;
    }
    mExchange = true;
    mOracle.exchange = std::make_shared<ExchangeModel>(mOracle, shared_from_this(), *mConnector);
    mOracle.machines.resize(2);
    mOracle.machines.push_back(mOracle.exchange);
    mOracle.exchange->Start(mPass.body, mPass.destination);
}

void ClientModel::HandleAnswer(const Event& event) {
    Shows({"I Backend response received, status: " + std::to_string(event.number)});
    mExchange = false;
    if (event.number == 9) {
        domain::backend::proto::GenericErrorV2 error;
        const bool parses = error.ParseFromString(event.text);
        EndPass(
            {parses ? "I GenericError received!\nErrorCode: " + std::to_string(error.error_code()) +
                          "\nErrorDescription: " + error.error_description() +
                          "\nTransactionId: " + error.transaction_id() + "\n"
                    : "E Failed to parse error response",
             kUpdateFailed});
        return;
    }
    if (event.number != 0) {
        StartRetry("I Backend connection failed, retrying...");
        return;
    }
    domain::backend::proto::QUBACTKoruCertificateResponseV2 response;
    if (!response.ParseFromString(event.text)) {
        EndPass({"E Unable to parse the Response!", kUpdateFailed});
        return;
    }
    Shows({"I Received a TIV Certificate: '" + response.certificate() + "'",
           "I Delay TIV validation by 3 seconds..."});
    mOracle.RaiseTimer(
        {shared_from_this(), kValidateCertificate, 0, 0, false, response.certificate()}, 3000);
    Enter("FsmStateCheckAndStoreTiv");
}

void ClientModel::CheckAndStore(const Event& event) {
    Shows({"> Check " + event.text + " " + mKoruVin});
    if (mUnit.checkFails) {
        EndPass({"E Checking the TIV Certificate failed!", kUpdateFailed});
        return;
    }
    Shows({"I The TIV Certificate is valid", "> Store " + event.text});
    if (mUnit.storeFails) {
        EndPass({"E Storing the TIV Certificate failed!", kUpdateFailed});
    } else {
        EndPass({"I The TIV Certificate and the Key were stored successfully",
                 "I EndCertificateUpdate The TIV Certificate was successfully updated"});
    }
}

void ClientModel::StartRetry(const std::string& line) {
    Shows({line});
    mPass.retryOngoing = true;
    const auto retry = static_cast<std::size_t>(mPass.retries++);
    if (retry == kRetryWaits.size()) {
        EndPass({"I Retry limit exceeded. Stopping...", kUpdateFailed});
        return;
    }
    Shows({"I Retrying in " + std::to_string(kRetryWaits.at(retry)) + " seconds..."});
    Timer(kRetryTimer, kRetryWaits.at(retry) * 1000);
    Enter("FsmRetryProcedure");
}

void ClientModel::Retry(const Event&) {
    ++mOracle.passes;
    QueryVin();
}

void ClientModel::EndPass(std::initializer_list<std::string> lines) {
    Shows(lines);
    mPass = {};
    Shows({"I Vintrel Client waiting for a trigger"});
    Enter("FsmStateWaitTrigger");
}

bool ClientModel::Delete() {
    Shows({"> Delete", mUnit.deleteFails ? "E Deleting the TIV certificate failed!"
                                         : "I The TIV Certificate was deleted successfully"});
    return mUnit.deleteFails;
}

}  // namespace lives
