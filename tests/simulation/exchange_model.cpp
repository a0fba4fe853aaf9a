#include "simulation/exchange_model.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <utility>

namespace simulation {

namespace {

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

ExchangeModel::ExchangeModel(Oracle& oracle, const std::shared_ptr<MachineModel>& target,
                             ConnectorModel& connector)
    : MachineModel(oracle, "BackendRequestHandler"), mTarget(target), mConnector(connector) {}

void ExchangeModel::Start(const std::string& body, const Destination& destination) {
    Built();
    mBody = body;
    mDestination = destination;
    Timer(kTimeoutEvent, 30000);
    Raise(0);
    Enter("FsmStateConnect");
}

void ExchangeModel::Handle(const Event& event) {
    if (event.id == kTimeoutEvent) {
        Row("exchange: timeout");
        End(2);
    } else if (In("FsmStateConnect")) {
        Connect();
    } else if (In("FsmStateWaitingConnect")) {
        HandleSocket(event);
    } else if (In("FsmStateWaitHttpConfirmation")) {
        if (event.info == kData) {
            HandleConfirmation(event.text);
        } else {
            Row("exchange: stream ends before the confirmation");
        }
    } else if (event.info == kData) {
        Row("exchange: data");
        mReceived += event.text;
    } else if (event.info == kClosed) {
        Info("The HTTP Response was received successfully.");
        HandleAnswer();
    } else {
        Row("exchange: read error", {"E Read error!"});
        End(8);
    }
}

void ExchangeModel::Connect() {
    Info("Connecting to " + mDestination.host + ":" + std::to_string(mDestination.port));
    if (mConnector.Connect(mDestination.host, mDestination.port, shared_from_this())) {
        Enter("FsmStateWaitingConnect");
        return;
    }
    Row("exchange: refused");
    End(6);
}

void ExchangeModel::HandleSocket(const Event& event) {
    if (event.id != kSocketEvent || event.number != 0) {
        Row("exchange: socket failed", {"E Connection failed!"});
        End(7);
        return;
    }
    mWire = event.wire;
    mStreamActive = true;
    mOracle.Expect(kStream + "FsmStateIdle");
    if (!Write("PUT " + mDestination.path + " HTTP/1.1\r\nHost: " + mDestination.host +
               "\r\nContent-Type: application/QUBA_CO_KoruVintrelRequest_v1+proto\r\nAccept: " +
               kCertificateType + ";" + kErrorType +
               "\r\nExpect: 100-continue\r\nConnection: close\r\nContent-Length: " +
               std::to_string(mBody.size()) + "\r\n\r\n")) {
        Row("exchange: header not written");
        return;
    }
    Row("exchange: header sent");
    Info("The HTTP Header was sent successfully.");
    mOracle.Expect(kStream + "FsmStateReadContinued");
    Enter("FsmStateWaitHttpConfirmation");
}

bool ExchangeModel::Write(const std::string& text) {
    if (mStreamActive && !mWire->backendGone) {
        mWire->toBackend += text;
        mWire->cut = text.size() > kFits;
        if (!mWire->cut) {
            return true;
        }
    }
    Row({}, {"E Write error: " + std::to_string(text.size()) + "!"});
    End(8);
    return false;
}

void ExchangeModel::ReadSocket() {
    if (!mStreamActive) {
        mOracle.Violate("a socket was watched that nobody reads");
        return;
    }
    Event event = To(shared_from_this(), kStreamEvent, kData);
    if (!mWire->toMachine.empty()) {
        event.text = mWire->toMachine.substr(0, kReadSize);
        mWire->toMachine.erase(0, kReadSize);
    } else if (mWire->reset) {
        mOracle.Expect(
            "E FsmStreamCommunicator: FsmStreamCommunicatorOnceOrCont eReadError -1 "
            "errno " +
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
bool ExchangeModel::Parse(const std::string& data) {
    mAnswerBody.clear();
    const std::size_t end = data.find("\r\n\r\n");
    if (end == std::string::npos) {
        mStatus = kIncomplete;
        return true;
    }
    mAnswerHeader = data.substr(0, end);
    if (mAnswerHeader.compare(0, 4, "HTTP") != 0) {
        return true;
    }
    const std::size_t blank = data.find(' ');
    try {
        mStatus = std::stoi(data.substr(blank == std::string::npos ? 0 : blank + 1, 3));
    } catch (const std::exception&) {
        mOracle.exceptionExpected = true;
        return false;
    }
    if (!IsKnownStatus(mStatus)) {
        mStatus = kUnknownStatus;
    }
    mAnswerBody = data.substr(end + 4);
    return true;
}

void ExchangeModel::HandleConfirmation(const std::string& data) {
    mReceived += data;
    if (!Parse(mReceived)) {
        Row("exchange: confirmation without a number");
        return;
    }
    if (mStatus == kIncomplete) {
        Row("exchange: confirmation incomplete");
        return;
    }
    if (mStatus != 100) {
        Row("exchange: confirmation refused",
            {"E " + std::string("Unexpected HTTP response: " + std::to_string(mStatus) + "!")});
        End(9);
        return;
    }
    mReceived.clear();
    if (!Write(mBody)) {
        Row("exchange: body not written");
        return;
    }
    Row("exchange: body sent");
    Info("The Payload was sent successfully.");
    Enter("FsmStateWaitingResponse");
}

void ExchangeModel::HandleAnswer() {
    if (!Parse(mReceived)) {
        Row("exchange: answer without a number");
        return;
    }
    const auto headerHas = [this](const std::string& type) {
        return mAnswerHeader.find(type) != std::string::npos;
    };
    if (mStatus != 200) {
        Row({}, {"E Unexpected HTTP response: " + std::to_string(mStatus) + "!"});
        if (headerHas(kErrorType)) {
            Row("exchange: error answer");
            End(9, mAnswerBody);
            return;
        }
        Row("exchange: other error");
        Info("Unknown type of payload received");
        End(9);
    } else if (mAnswerBody.empty()) {
        Row("exchange: empty answer", {"E Empty HTTP Response received!"});
        End(10);
    } else if (headerHas(kCertificateType)) {
        Row("exchange: certificate");
        Info("HTTP response received successfully");
        End(0, mAnswerBody);
    } else {
        Row("exchange: other answer");
        Info("Unknown type of payload received");
        End(11);
    }
}

void ExchangeModel::End(int code, const std::string& response) {
    mOracle.Drop(this, kTimeoutEvent);
    Event event = To(mTarget.lock(), 3);
    event.number = code;
    event.text = response;
    mOracle.Raise(std::move(event));
    Info("OnTerminate");
    if (mStreamActive) {
        mOracle.Expect(kStream + "FsmStateTerminated");
        mStreamActive = false;
    }
    Enter("FsmStateTerminated");
}

}  // namespace simulation
