#include "lives/client_model.h"

#include <algorithm>
#include <sstream>

#include "GenericError_V2.pb.h"
#include "QUBA_CO_KoruVintrelRequest_v1.pb.h"
#include "QUBA_CT_KoruCertificateResponse_v2.pb.h"

namespace lives {

namespace {

constexpr int kBackendResponse = 3;
constexpr int kStartUpdate = 7;
constexpr int kConnector = 8;
constexpr int kImmobilizerVin = 11;
constexpr int kTlsAlert = 12;
constexpr int kUrlInfo = 3;
constexpr int kRefused = 9;

const Url& UrlOf(const std::string& text) {
    return *std::find_if(kUrls.begin(), kUrls.end(),
                         [&text](const Url& known) { return known.text == text; });
}

}  // namespace

void ClientModel::Construct(bool storeOpens, bool terminatedMeanwhile) {
    mOracle.Expect("I FsmBaseClass: State transition to FsmStateNotStarted");
    Shows({"> NewProcessLifecycleAdapter", "> SystemTimeIf::Create", "> NewHsm"});
    if (terminatedMeanwhile) {
        CalledBack(client_table::TriggerOf("shutdown"));
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
        const bool fails = mUnit.Has("deletion fails");
        Tell({fails ? "@deletion fails" : "@deletion works"});
        if (fails) {
            Shows({"E Factory Reset failed!"});
        }
    }
    Shows(
        {"> Clamp.Subscribe", "> Immobilizer.Init", "> Ecu.Initialize", "> SystemTime.Initialize"});
    Tell({"@waiting", "= FsmStateWaitTrigger"});
    return true;
}

void ClientModel::CalledBack(const client_table::Trigger& trigger) {
    mFacts["text"] = trigger.text;
    TellRaising(client_table::NameOf(trigger));
    owesVin -= trigger.event == kImmobilizerVin && owesVin > 0 ? 1 : 0;
    if (trigger.event != kTlsAlert || trigger.text == client_table::kOid) {
        Post({nullptr, trigger.event, trigger.info, trigger.value, false, trigger.text});
    }
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
    const vintrel::EcuCapabilities ecu = mUnit.Ecu();
    client_table::Facts facts{{"text", event.text},
                              {"event", std::to_string(event.id)},
                              {"info", std::to_string(event.info)},
                              {"value", std::to_string(event.number)},
                              {"code", std::to_string(event.number)},
                              {"hardware", ecu.hardwareVersion},
                              {"software", ecu.softwareVersion},
                              {"part", ecu.partNumber},
                              {"container", mUnit.Container()}};
    const auto learn = [&facts](const client_table::Facts& more) {
        facts.insert(more.begin(), more.end());
    };
    learn(client_table::FactsOf("status " + std::to_string(static_cast<int>(mUnit.status))));
    for (const std::string& trouble : mUnit.troubles) {
        learn(client_table::FactsOf(trouble));
    }
    for (const auto& [trouble, itsFacts] : client_table::Troubles()) {
        for (const auto& [fact, value] : itsFacts) {
            facts.insert({fact, client_table::FirstFacts().at(fact)});
        }
    }
    facts.merge(mFacts);
    mFacts.swap(facts);
    if (event.id == kImmobilizerVin) {
        mFacts["KORU VIN"] = mUnit.KoruVin();
    } else if (event.id == kStartUpdate) {
        mBody = RequestBody();
    }
}

std::string ClientModel::NameOf(const Event& event) {
    if (event.id == kConnector && event.info == kUrlInfo) {
        return !event.good              ? "URL failed"
               : event.text.empty()     ? "URL empty"
               : UrlOf(event.text).good ? "URL"
                                        : "URL invalid";
    }
    if (event.id == kImmobilizerVin) {
        return event.text.empty()              ? "VIN empty"
               : event.text == mUnit.KoruVin() ? "VIN"
                                               : "VIN other";
    }
    if (event.id == kBackendResponse && event.number == kRefused) {
        domain::backend::proto::GenericErrorV2 error;
        const bool parses = error.ParseFromString(event.text);
        mFacts["error"] = "ErrorCode: " + std::to_string(error.error_code()) +
                          "\nErrorDescription: " + error.error_description() +
                          "\nTransactionId: " + error.transaction_id() + "\n";
        return parses ? "response refusal" : "response broken refusal";
    }
    if (event.id == kBackendResponse && event.number == 0) {
        domain::backend::proto::QUBACTKoruCertificateResponseV2 response;
        const bool parses = response.ParseFromString(event.text);
        mFacts["certificate"] = response.certificate();
        return parses ? "response certificate" : "response broken";
    }
    return client_table::NameOf({event.id, event.info, event.number, {}, false});
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
        CalledBack(client_table::TriggerOf("shutdown"));
    }
    Shows({"> Adapter released"});
}

}  // namespace lives
