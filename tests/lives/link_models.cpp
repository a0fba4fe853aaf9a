#include "lives/link_models.h"

#include <array>
#include <cerrno>
#include <exception>
#include <utility>

namespace lives {

namespace {

constexpr int kStarting = 1;
constexpr int kStarted = 2;
constexpr int kRejected = 3;

const std::string kOperation = "QUBA-GenerateTIVCert-C003.COSendCSR";
const std::string kTransaction = "QUBA-GenerateTIVCert-C003";
const std::array<std::string, 4> kStatusTexts{"Idle", "Starting", "Started", "Rejected"};
const std::array<std::string, 4> kConnectionTexts{"NotAvailable", "Disconnected", "OnDemand",
                                                  "Connected"};

std::string TraceName(int id) {
    return "SocketConnectCb_" + std::to_string(id) + "_";
}

constexpr int kSocketEvent = 1;
constexpr int kStreamEvent = 2;
constexpr int kTimeoutEvent = 3;
constexpr int kClosed = 0;
constexpr int kData = 3;
constexpr int kReadError = 6;
constexpr int kIncomplete = 4095;
constexpr int kUnknownStatus = 255;
constexpr std::size_t kReadSize = 1024;

const std::string kCertificateType = "application/QUBA_CT_KoruCertificateResponse_v2+proto";
const std::string kErrorType = "application/GenericError_v2+proto";
const std::string kStream = "I FsmStreamCommunicator: State transition to ";

bool IsKnownStatus(int status) {
    return (status >= 100 && status <= 101) || (status >= 200 && status <= 206) ||
           (status >= 301 && status <= 305) || status == 307 || (status >= 400 && status <= 417) ||
           (status >= 500 && status <= 505);
}

}  // namespace

bool ConnectorModel::Start(const std::shared_ptr<MachineModel>& target) {
    Registered();
    mStarted = true;
    mTarget = target;
    Shows({"> Library.Start"});
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
    Shows({"I OnTerminate", "> Library.Stop", "> Library destroyed"});
    mAttempts.clear();
    Enter("FsmStateTerminated");
}

void ConnectorModel::Report(int info, int number, bool good, const std::string& text) {
    mOracle.Raise({mTarget.lock(), 8, info, number, good, text});
}

void ConnectorModel::HandleStatus(int status) {
    if (status < 0 || status > kRejected) {
        Shows({"E Invalid connector status: " + std::to_string(status)});
        return;
    }
    if (status == kStarted) {
        Shows({"> Library.Subscribe " + kTransaction + " 0"});
        Enter("FsmStateConnectorStarted");
    } else if (status == kStarting) {
        Enter("FsmStateConnectorStarting");
    }
    mStatus = status;
    Shows({"I Zem-Connector status: " + kStatusTexts.at(static_cast<std::size_t>(status))});
    Report(0, status);
    if (status == kRejected) {
        Stop();
    }
}

void ConnectorModel::GetUrl() {
    if (mQueryPending) {
        Shows({"E URL query already pending."});
        return;
    }
    if (!Ended()) {
        Shows({"> Library.GetInvocationUrl " + kOperation});
    }
    mQueryPending = !Ended() && mLibrary.acceptsUrlQuery;
    if (!mQueryPending) {
        Shows({"E GetInvocationUrl failed."});
    }
}

bool ConnectorModel::Connect(const std::string& host, int port,
                             const std::shared_ptr<MachineModel>& exchange) {
    if (mStatus != kStarted) {
        Shows({"E Connection refused because of the Zem-Connector status: " +
               kStatusTexts.at(static_cast<std::size_t>(mStatus))});
        return false;
    }
    if (!mActivated) {
        Shows({"E Activation State is Disabled!"});
        return false;
    }
    if (!Ended()) {
        Shows({"> Library.SocketConnect " + kOperation + " " + host + " " + std::to_string(port)});
    }
    if (Ended() || !mLibrary.acceptsSocket) {
        Shows({"E SocketConnect() failed!"});
        return false;
    }
    Shows({"I " + TraceName(mNextAttempt) + " started."});
    mAttempts[mNextAttempt++] = exchange;
    return true;
}

void ConnectorModel::SocketResult(int id, int status, const std::shared_ptr<Wire>& wire) {
    mOracle.Expect(status == 0
                       ? "I " + TraceName(id) + ": Connection established"
                       : "E " + TraceName(id) + ": Connection failed: " + std::to_string(status));
    Post({nullptr, 4, id, status, false, {}, wire});
}

void ConnectorModel::Handle(const Event& event) {
    if (event.id == 0) {
        HandleStatus(event.info);
    } else if (event.id == 1) {
        HandleUrl(event);
    } else if (event.id == 2) {
        mActivated = event.good;
        Shows({"I '" + kTransaction + "' Activation State changed to " +
               (mActivated ? "Activated" : "Disabled")});
        Report(1, 0);
    } else if (event.id == 3) {
        Shows({"I '" + kTransaction + "' Connection State changed to " +
               kConnectionTexts.at(static_cast<std::size_t>(event.number))});
        Report(2, event.number);
    } else {
        HandleSocket(event);
    }
}

void ConnectorModel::HandleUrl(const Event& event) {
    if (!std::exchange(mQueryPending, false)) {
        Stop();
        return;
    }
    Shows({event.number != 0 ? "E Error received for the URL!" : "I Received URL: " + event.text});
    if (!event.good && event.number == 0) {
        Shows({"E Received URL for incorrect OperationTypeId: 'another'!"});
    }
    Report(3, 0, event.good, event.text);
}

void ConnectorModel::HandleSocket(const Event& event) {
    Shows({"I " + TraceName(event.info) + " ended."});
    mOracle.Expect("I FsmStreamCommunicator: State transition to FsmStateNotStarted");
    mOracle.Raise({mAttempts.at(event.info), 1, 0, event.number, false, {}, event.wire});
    mAttempts.erase(event.info);
}

void ExchangeModel::Start(const std::string& body, const Destination& destination) {
    Enter("FsmStateNotStarted");
    mBody = body;
    mDestination = destination;
    Timer(kTimeoutEvent, 30000);
    Enter("FsmStateConnect", 0);
}

void ExchangeModel::Handle(const Event& event) {
    if (event.id == kTimeoutEvent) {
        End(2);
    } else if (In("FsmStateConnect")) {
        Connect();
    } else if (In("FsmStateWaitingConnect")) {
        HandleSocket(event);
    } else if (In("FsmStateWaitHttpConfirmation")) {
        HandleConfirmation(event);
    } else if (event.info == kData) {
        mReceived += event.text;
    } else if (event.info == kClosed) {
        Shows({"I The HTTP Response was received successfully."});
        HandleAnswer();
    } else {
        Shows({"E Read error!"});
        End(8);
    }
}

void ExchangeModel::Connect() {
    Shows({"I Connecting to " + mDestination.host + ":" + std::to_string(mDestination.port)});
    if (mConnector.Connect(mDestination.host, mDestination.port, shared_from_this())) {
        Enter("FsmStateWaitingConnect");
    } else {
        End(6);
    }
}

void ExchangeModel::HandleSocket(const Event& event) {
    if (event.id != kSocketEvent || event.number != 0) {
        Shows({"E Connection failed!"});
        End(7);
        return;
    }
    mWire = event.wire;
    mStreamActive = true;
    mOracle.Expect(kStream + "FsmStateIdle");
    if (Write("PUT " + mDestination.path + " HTTP/1.1\r\nHost: " + mDestination.host +
              "\r\nContent-Type: application/QUBA_CO_KoruVintrelRequest_v1+proto\r\nAccept: " +
              kCertificateType + ";" + kErrorType +
              "\r\nExpect: 100-continue\r\nConnection: close\r\nContent-Length: " +
              std::to_string(mBody.size()) + "\r\n\r\n")) {
        Shows({"I The HTTP Header was sent successfully."});
        mOracle.Expect(kStream + "FsmStateReadContinued");
        Enter("FsmStateWaitHttpConfirmation");
    }
}

bool ExchangeModel::Write(const std::string& text) {
    if (mStreamActive && !mWire->backendGone) {
        mWire->toBackend += text;
        mWire->cut = text.size() > kFits;
        if (!mWire->cut) {
            return true;
        }
    }
    Shows({"E Write error: " + std::to_string(text.size()) + "!"});
    End(8);
    return false;
}

void ExchangeModel::ReadSocket() {
    if (!mStreamActive) {
        mOracle.Violate("a socket was watched that nobody reads");
        return;
    }
    Event event{shared_from_this(), kStreamEvent, kData};
    if (!mWire->toMachine.empty()) {
        event.text = mWire->toMachine.substr(0, kReadSize);
        mWire->toMachine.erase(0, kReadSize);
    } else if (mWire->reset) {
        mOracle.Expect(
            "E FsmStreamCommunicator: FsmStreamCommunicatorOnceOrCont eReadError -1 errno " +
            std::to_string(ECONNRESET));
        mWire->reset = false;
        event.info = kReadError;
    } else if (mWire->backendGone || mWire->backendHalfClosed) {
        event.info = kClosed;
        mOracle.Expect(kStream + "FsmStateTerminated");
        mStreamActive = false;
    } else {
        mOracle.Violate("the socket was read without need");
    }
    mOracle.Raise(std::move(event));
}

/// False if there is a status that is no number.
bool ExchangeModel::Parse() {
    mAnswerBody.clear();
    const std::size_t end = mReceived.find("\r\n\r\n");
    if (end == std::string::npos) {
        mStatus = kIncomplete;
        return true;
    }
    mAnswerHeader = mReceived.substr(0, end);
    if (mAnswerHeader.compare(0, 4, "HTTP") != 0) {
        return true;
    }
    // Without a blank it begins at the front.
    const std::string status = mReceived.substr(mReceived.find(' ') + 1, 3);
    try {
        mStatus = std::stoi(status);
    } catch (const std::exception&) {
        mOracle.exceptionExpected = true;
        return false;
    }
    mStatus = IsKnownStatus(mStatus) ? mStatus : kUnknownStatus;
    mAnswerBody = mReceived.substr(end + 4);
    return true;
}

void ExchangeModel::HandleConfirmation(const Event& event) {
    mReceived += event.text;
    if (event.info != kData || !Parse() || mStatus == kIncomplete) {
        return;
    }
    if (mStatus != 100) {
        Shows({"E Unexpected HTTP response: " + std::to_string(mStatus) + "!"});
        End(9);
        return;
    }
    mReceived.clear();
    if (Write(mBody)) {
        Shows({"I The Payload was sent successfully."});
        Enter("FsmStateWaitingResponse");
    }
}

void ExchangeModel::HandleAnswer() {
    if (!Parse()) {
        return;
    }
    const auto headerHas = [this](const std::string& type) {
        return mAnswerHeader.find(type) != std::string::npos;
    };
    if (mStatus != 200) {
        Shows({"E Unexpected HTTP response: " + std::to_string(mStatus) + "!"});
        if (headerHas(kErrorType)) {
            End(9, mAnswerBody);
            return;
        }
        Shows({"I Unknown type of payload received"});
        End(9);
    } else if (mAnswerBody.empty()) {
        Shows({"E Empty HTTP Response received!"});
        End(10);
    } else if (headerHas(kCertificateType)) {
        Shows({"I HTTP response received successfully"});
        End(0, mAnswerBody);
    } else {
        Shows({"I Unknown type of payload received"});
        End(11);
    }
}

void ExchangeModel::End(int code, const std::string& response) {
    mOracle.Drop(this, kTimeoutEvent);
    mOracle.Raise({mTarget.lock(), 3, 0, code, false, response});
    Shows({"I OnTerminate"});
    if (std::exchange(mStreamActive, false)) {
        mOracle.Expect(kStream + "FsmStateTerminated");
    }
    Enter("FsmStateTerminated");
}

}  // namespace lives
