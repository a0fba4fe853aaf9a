#include "lives/client_model.h"

#include <algorithm>
#include <array>
#include <sstream>

#include "GenericError_V2.pb.h"
#include "QUBA_CO_KoruVintrelRequest_v1.pb.h"
#include "QUBA_CT_KoruCertificateResponse_v2.pb.h"

namespace lives {

namespace {

constexpr int kBackendResponse = 3;
constexpr int kStartUpdate = 7;
constexpr int kConnector = 8;
constexpr int kClamp = 9;
constexpr int kImmobilizerConnection = 10;
constexpr int kImmobilizerVin = 11;
constexpr int kTlsAlert = 12;
constexpr int kShutdown = 13;
constexpr int kRefused = 9;

const Url& UrlOf(const std::string& text) {
    return *std::find_if(kUrls.begin(), kUrls.end(),
                         [&text](const Url& known) { return known.text == text; });
}

std::string NameOfStatus(vintrel::StatusCode code) {
    static const std::array<std::string, 8> names{"good",     "unknown", "missing", "unknown",
                                                  "mismatch", "invalid", "invalid", "ending"};
    const auto status = static_cast<std::size_t>(code);
    return status < names.size() ? names.at(status) : "unknown";
}

std::string NameOfConnectorEvent(const Event& event) {
    static const std::array<std::string, 4> sessions{"session idle", "session starting",
                                                     "session started", "session rejected"};
    static const std::array<std::string, 4> connections{"connection 0", "connection 1",
                                                        "connection 2", "connection 3"};
    const auto number = static_cast<std::size_t>(event.number);
    switch (event.info) {
        case 0:
            return sessions.at(number);
        case 1:
            return "activation";
        case 2:
            return connections.at(number);
        default:
            return !event.good              ? "URL failed"
                   : event.text.empty()     ? "URL empty"
                   : UrlOf(event.text).good ? "URL"
                                            : "URL invalid";
    }
}

}  // namespace

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
        Tell({"@end"});
        return false;
    }
    Shows({"> Adapter.Initialize vintrel-client"});
    if (!mConnector->Start(shared_from_this())) {
        Tell({"@end"});
        return false;
    }
    if (mFacts["reset"] == "asked") {
        Shows({"I Vintrel Client Factory Reset"});
        Tell({mUnit.deleteFails ? "@deletion fails" : "@deletion works"});
        if (mUnit.deleteFails) {
            Shows({"E Factory Reset failed!"});
        }
    }
    Shows(
        {"> Clamp.Subscribe", "> Immobilizer.Init", "> Ecu.Initialize", "> SystemTime.Initialize"});
    Tell({"@waiting", "= FsmStateWaitTrigger"});
    return true;
}

void ClientModel::ClampState(bool on) {
    TellRaising(on ? "clamp on" : "clamp off");
    Post({nullptr, kClamp, on ? 1 : 0});
}

void ClientModel::ImmobilizerConnection(bool connected) {
    TellRaising(connected ? "service up" : "service down");
    Post({nullptr, kImmobilizerConnection, connected ? 1 : 0});
}

void ClientModel::ImmobilizerVin(const std::string& vin) {
    Post({nullptr, kImmobilizerVin, 0, 0, false, vin});
}

void ClientModel::TlsAlert(const std::string& oid, int code) {
    mFacts["text"] = oid;
    TellRaising("alert");
    if (oid == client_table::kOid) {
        Post({nullptr, kTlsAlert, 0, code, false, oid});
    }
}

void ClientModel::Termination() {
    Post({nullptr, kShutdown});
}

void ClientModel::Handle(const Event& event) {
    Look(event);
    const std::string to = client_table::Follow(State(), NameOf(event), mFacts,
                                                [this](const std::string& item) { See(item); });
    if (to != State()) {
        Enter(to.c_str());
    }
}

void ClientModel::Look(const Event& event) {
    const auto course = [](bool fails) -> std::string { return fails ? "fails" : "works"; };
    const vintrel::EcuCapabilities& ecu = mUnit.ecu;
    const bool isEcuComplete =
        !ecu.hardwareVersion.empty() && !ecu.softwareVersion.empty() && !ecu.partNumber.empty();
    const std::string status = NameOfStatus(mUnit.status);
    const bool isUpdateRequired = status != "good" && status != "unknown";
    client_table::Facts facts{{"text", event.text},
                              {"event", std::to_string(event.id)},
                              {"info", std::to_string(event.info)},
                              {"value", std::to_string(event.number)},
                              {"code", std::to_string(event.number)},
                              {"clock", mUnit.timeSet ? "set" : "not set"},
                              {"status", status},
                              {"update", isUpdateRequired ? "required" : "not required"},
                              {"deletion", course(mUnit.deleteFails)},
                              {"ECU data", isEcuComplete ? "complete" : "missing"},
                              {"hardware", ecu.hardwareVersion},
                              {"software", ecu.softwareVersion},
                              {"part", ecu.partNumber},
                              {"CSR", mUnit.csr.empty() ? "missing" : "made"},
                              {"container", mUnit.container},
                              {"request", "made"},
                              {"exchange start", course(!mUnit.exchangeStarts)},
                              {"check", course(mUnit.checkFails)},
                              {"storing", course(mUnit.storeFails)}};
    facts.merge(mFacts);
    mFacts.swap(facts);
    if (event.id == kImmobilizerVin) {
        mFacts["KORU VIN"] = mUnit.koruVin;
    } else if (event.id == kStartUpdate) {
        mBody = RequestBody();
    }
}

std::string ClientModel::NameOf(const Event& event) {
    switch (event.id) {
        case kConnector:
            return NameOfConnectorEvent(event);
        case kClamp:
            return event.info == 1 ? "clamp on" : "clamp off";
        case kImmobilizerConnection:
            return event.info == 1 ? "service up" : "service down";
        case kImmobilizerVin:
            return event.text.empty()            ? "VIN empty"
                   : event.text == mUnit.koruVin ? "VIN"
                                                 : "VIN other";
        case kTlsAlert:
            return "alert";
        case kShutdown:
            return "shutdown";
        case kBackendResponse:
            return NameOfResponse(event);
        default:
            return client_table::EventName(event.id);
    }
}

std::string ClientModel::NameOfResponse(const Event& event) {
    if (event.number == kRefused) {
        domain::backend::proto::GenericErrorV2 error;
        const bool parses = error.ParseFromString(event.text);
        mFacts["error"] = "ErrorCode: " + std::to_string(error.error_code()) +
                          "\nErrorDescription: " + error.error_description() +
                          "\nTransactionId: " + error.transaction_id() + "\n";
        return parses ? "response refusal" : "response broken refusal";
    }
    if (event.number != 0) {
        return "response " + std::to_string(event.number);
    }
    domain::backend::proto::QUBACTKoruCertificateResponseV2 response;
    const bool parses = response.ParseFromString(event.text);
    mFacts["certificate"] = response.certificate();
    return parses ? "response certificate" : "response broken";
}

void ClientModel::Tell(const client_table::Words& story) {
    client_table::Tell(story, mFacts, [this](const std::string& item) { See(item); });
}

void ClientModel::TellRaising(const std::string& trigger) {
    client_table::TellRaising(trigger, mFacts, [this](const std::string& item) { See(item); });
}

void ClientModel::See(const std::string& item) {
    const std::string text = item.substr(2);
    switch (item[0]) {
        case '=':
            Enter(text.c_str());
            break;
        case '+':
            RaiseItem(text);
            break;
        case '-':
            mOracle.Drop(this, client_table::EventId(text));
            break;
        case '>':
            CallNeighbour(text);
            break;
        case '~':
            for (const std::string& line : UrlOf(mFacts.at("text")).lines) {
                mOracle.Expect(line);
            }
            mDestination = UrlOf(mFacts.at("text")).destination;
            break;
        case 'D':  // not seen by the oracle
        case 'e':
            break;
        default:
            Shows({item});
            break;
    }
}

/// "kEventX", or "kEventX in 5000 ms".
void ClientModel::RaiseItem(const std::string& text) {
    std::istringstream words(text);
    std::string name;
    std::string in;
    int msec = 0;
    words >> name;
    const int event = client_table::EventId(name);
    if (words >> in >> msec) {
        Timer(event, msec);
    } else {
        Raise(event);
    }
    mOracle.passes += name == "kEventStartConnector" || name == "kEventRetryTimer" ? 1 : 0;
}

/// Some neighbours are models themselves.
void ClientModel::CallNeighbour(const std::string& call) {
    if (call == "Adapter released") {
        ReleaseAdapter();
    } else if (call == "Connector stopped") {
        mConnector->Stop();
    } else if (call == "GetUrl") {
        mConnector->GetUrl();
    } else if (call == "exchange started") {
        StartExchange();
    } else if (call == "exchange refused") {
        mOracle.Expect("I ScriptedExchangeFsm: State transition to FsmStateNotStarted");
    } else {
        Shows({"> " + call});
        owesVin += call == "GetVin" ? 1 : 0;
    }
}

std::string ClientModel::RequestBody() const {
    domain::backend::proto::QUBACOKoruVintrelRequestV1 request;
    request.set_activation_reason(std::stoi(mFacts.at("reason")));
    request.set_csr_container(mUnit.container);
    request.set_operationtypeid(mFacts.at("oid"));
    auto& ecu = *request.mutable_ecu_capability();
    ecu.set_diagnostic_address("C003");
    ecu.set_hw_version(mUnit.ecu.hardwareVersion);
    ecu.set_sw_version(mUnit.ecu.softwareVersion);
    ecu.set_part_number(mUnit.ecu.partNumber);
    request.mutable_sim_card_data();
    return request.SerializeAsString();
}

void ClientModel::StartExchange() {
    mOracle.exchange = std::make_shared<ExchangeModel>(mOracle, shared_from_this(), *mConnector);
    mOracle.machines.resize(2);
    mOracle.machines.push_back(mOracle.exchange);
    mOracle.exchange->Start(mBody, mDestination);
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

}  // namespace lives
