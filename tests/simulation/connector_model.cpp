#include "simulation/connector_model.h"

#include <array>
#include <utility>

namespace simulation {

namespace {

constexpr int kStarting = 1;
constexpr int kStarted = 2;
constexpr int kRejected = 3;

const std::string kOperation = "QUBA-GenerateTIVCert-C003.COSendCSR";
const std::string kTransaction = "QUBA-GenerateTIVCert-C003";

const char* StatusText(int status) {
    static constexpr std::array<const char*, 4> kTexts{"Idle", "Starting", "Started", "Rejected"};
    return kTexts.at(static_cast<std::size_t>(status));
}

const char* ConnectionText(int state) {
    static constexpr std::array<const char*, 4> kTexts{"NotAvailable", "Disconnected", "OnDemand",
                                                       "Connected"};
    return kTexts.at(static_cast<std::size_t>(state));
}

std::string TraceName(int id) {
    return "SocketConnectCb_" + std::to_string(id) + "_";
}

}  // namespace

ConnectorModel::ConnectorModel(Oracle& oracle, ConnectorLibrary& library)
    : MachineModel(oracle, "ZemConnectorFsm"), mLibrary(library) {}

bool ConnectorModel::Start(const std::shared_ptr<MachineModel>& target) {
    Registered();
    mStarted = true;
    mTarget = target;
    Calls({"Library.Start"});
    const int status = static_cast<int>(mLibrary.startStatus);
    if (status == kRejected) {
        Stop();
        return false;
    }
    HandleStatus(status);
    return true;
}

void ConnectorModel::Stop() {
    if (Ended() || !mStarted) {
        return;
    }
    Info("OnTerminate");
    Calls({"Library.Stop", "Library destroyed"});
    mAttempts.clear();
    Enter("FsmStateTerminated");
}

void ConnectorModel::Report(int info, int number) {
    Event event = To(mTarget.lock(), 8, info);
    event.number = number;
    mOracle.Raise(std::move(event));
}

void ConnectorModel::HandleStatus(int status) {
    if (status < 0 || status > kRejected) {
        Row("connector: status invalid", {"E Invalid connector status: " + std::to_string(status)});
        return;
    }
    Row(status == kRejected ? "connector: status rejected" : "connector: status");
    if (status == kStarted) {
        Calls({"Library.Subscribe " + kTransaction + " 0"});
        Enter("FsmStateConnectorStarted");
    } else if (status == kStarting) {
        Enter("FsmStateConnectorStarting");
    }
    mStatus = status;
    Info(std::string("Zem-Connector status: ") + StatusText(status));
    Report(0, status);
    if (status == kRejected) {
        Stop();
    }
}

void ConnectorModel::GetUrl() {
    if (mQueryPending) {
        Row("connector: query pending", {"E URL query already pending."});
        return;
    }
    if (!Ended()) {
        Calls({"Library.GetInvocationUrl " + kOperation});
    }
    if (Ended() || !mLibrary.acceptsUrlQuery) {
        Row("connector: query refused", {"E GetInvocationUrl failed."});
        return;
    }
    Row("connector: query");
    mQueryPending = true;
}

bool ConnectorModel::Connect(const std::string& host, int port,
                             const std::shared_ptr<MachineModel>& exchange) {
    if (mStatus != kStarted) {
        Row("connector: refused by status",
            {std::string("E Connection refused because of the Zem-Connector status: ") +
             StatusText(mStatus)});
        return false;
    }
    if (!mActivated) {
        Row("connector: refused by activation", {"E Activation State is Disabled!"});
        return false;
    }
    if (!Ended()) {
        Calls({"Library.SocketConnect " + kOperation + " " + host + " " + std::to_string(port)});
    }
    if (Ended() || !mLibrary.acceptsSocket) {
        Row("connector: socket refused", {"E SocketConnect() failed!"});
        return false;
    }
    Row("connector: socket asked for");
    Info(TraceName(mNextAttempt) + " started.");
    mAttempts[mNextAttempt++] = exchange;
    return true;
}

void ConnectorModel::SocketResult(int id, int status, const std::shared_ptr<Wire>& wire) {
    mOracle.Expect(status == 0
                       ? "I " + TraceName(id) + ": Connection established"
                       : "E " + TraceName(id) + ": Connection failed: " + std::to_string(status));
    Post({nullptr, 4, id, 0, status, false, {}, wire});
}

void ConnectorModel::Handle(const Event& event) {
    switch (event.id) {
        case 0:
            HandleStatus(event.info);
            break;
        case 1:
            HandleUrl(event);
            break;
        case 2:
            Row("connector: activation");
            mActivated = event.good;
            Info("'" + kTransaction + "' Activation State changed to " +
                 (mActivated ? "Activated" : "Disabled"));
            Report(1, 0);
            break;
        case 3:
            Row("connector: connection");
            mConnection = event.number;
            Info("'" + kTransaction + "' Connection State changed to " +
                 ConnectionText(mConnection));
            Report(2, mConnection);
            break;
        default:
            HandleSocket(event);
            break;
    }
}

void ConnectorModel::HandleUrl(const Event& event) {
    if (!mQueryPending) {
        Row("connector: URL not asked for");
        Stop();
        return;
    }
    mQueryPending = false;
    Row(event.good ? "connector: URL" : "connector: URL failed");
    if (event.number != 0) {
        Row({}, {"E Error received for the URL!"});
    } else {
        Info("Received URL: " + event.text);
    }
    if (!event.good && event.number == 0) {
        Row("connector: URL of another operation",
            {"E Received URL for incorrect OperationTypeId: 'another'!"});
    }
    Event report = To(mTarget.lock(), 8, 3);
    report.text = event.text;
    report.good = event.good;
    mOracle.Raise(std::move(report));
}

void ConnectorModel::HandleSocket(const Event& event) {
    Row("connector: socket result");
    Info(TraceName(event.info) + " ended.");
    mOracle.Expect("I FsmStreamCommunicator: State transition to FsmStateNotStarted");
    Event report = To(mAttempts.at(event.info), 1);
    report.number = event.number;
    report.wire = event.wire;
    mAttempts.erase(event.info);
    mOracle.Raise(std::move(report));
}

}  // namespace simulation
