#include "backend/backend_request_handler_fsm.h"

#include <algorithm>
#include <utility>

#include "fsm/event_dispatcher.h"
#include "fsm/fsm_event_data_stream_communicator.h"
#include "logging/qel_logging.h"

namespace vintrel {

using fsm::FsmStreamCommunicatorIf;
using nuro_common::HttpOption;
using nuro_common::HttpProtocol;
using qel_logging::QELLogging;

namespace {

constexpr int kExchangeLimitMsec = 30000;
constexpr std::size_t kReadSize = 1024;
constexpr std::size_t kMaxResponseSize = std::size_t{16} * 1024 * 1024;
constexpr std::uint16_t kStatusContinue = 100;
constexpr std::uint16_t kStatusOk = 200;

const std::string kRequestContentType = "application/QUBA_CO_KoruVintrelRequest_v1+proto";
const std::string kResponseContentType = "application/QUBA_CT_KoruCertificateResponse_v2+proto";
const std::string kErrorContentType = "application/GenericError_v2+proto";

bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

}  // namespace

BackendRequestHandlerFsm::BackendRequestHandlerFsm()
    : BackendRequestHandlerFsmIf("BackendRequestHandler") {}

bool BackendRequestHandlerFsm::StartFsm(std::shared_ptr<fsm::EventDispatcher> dispatcher,
                                        std::shared_ptr<fsm::Fsm> target, int targetEvent,
                                        std::string request,
                                        std::shared_ptr<ZemConnectorFsmIf> connectorFsm,
                                        const UrlData& urlData) {
    SetupFsm(dispatcher, std::move(target), targetEvent);
    if (!connectorFsm) {
        QELLogging::LogError(mLogName, "zemConnectorFsm is null");
        StopFsm();
        return false;
    }
    mUrlData = urlData;
    mConnectorFsm = std::move(connectorFsm);
    mRequestBody = std::move(request);
    RaiseTimerEvent(kTimeoutEvent, 0, kExchangeLimitMsec, nullptr);
    RaiseEvent(kConnectEvent, 0, nullptr);
    SetFsmState(&BackendRequestHandlerFsm::FsmStateConnect, "FsmStateConnect");
    return true;
}

void BackendRequestHandlerFsm::CreateHttpRequest(const std::string& body) {
    mHttpProtocol.SetOption(HttpOption::ContentType, kRequestContentType);
    mHttpProtocol.SetOption(HttpOption::Accept, kResponseContentType + ";" + kErrorContentType);
    mHttpProtocol.SetOption(HttpOption::Connection, "close");
    mHttpProtocol.SetOption(HttpOption::Payload, body);
    mHttpProtocol.SetOption(HttpOption::Path, mUrlData.path);
    mHttpProtocol.SetOption(HttpOption::Host, mUrlData.host);
    mHttpProtocol.PUT();
}

void BackendRequestHandlerFsm::FsmStateConnect(int eventId, int eventInfo) {
    if (eventId != kConnectEvent) {
        DefaultEventHandler(eventId, eventInfo);
        return;
    }
    CreateHttpRequest(mRequestBody);
    QELLogging::LogInfo(mLogName, "Connecting to ", mUrlData.host, ":", mUrlData.port);
    if (!mConnectorFsm->Connect(mUrlData.host, mUrlData.port, shared_from_this(), kSocketEvent)) {
        EndFsm({}, ReturnCode::kConnectRefused);
        return;
    }
    // The connector now holds us until the socket comes; holding it too would be a cycle.
    mConnectorFsm.reset();
    SetFsmState(&BackendRequestHandlerFsm::FsmStateWaitingConnect, "FsmStateWaitingConnect");
}

void BackendRequestHandlerFsm::FsmStateWaitingConnect(int eventId, int eventInfo) {
    if (eventId != kSocketEvent) {
        DefaultEventHandler(eventId, eventInfo);
        return;
    }
    HandleSocket();
}

void BackendRequestHandlerFsm::HandleSocket() {
    const auto data = TakeEventData<ZemConnectorFsmIf::SocketConnectEventData>();
    if (!data || data->socketStatus != 0) {
        QELLogging::LogError(mLogName, "Connection failed!");
        EndFsm({}, ReturnCode::kConnectionFailed);
        return;
    }
    mStreamCommunicator = data->streamCommunicator;
    if (!mStreamCommunicator ||
        !mStreamCommunicator->StartFsm(GetDispatcher(), shared_from_this(), kStreamEvent)) {
        QELLogging::LogError(mLogName, "Cannot start FsmStreamCommunicator!");
        EndFsm({}, ReturnCode::kInternalError);
        return;
    }
    const std::string& header = mHttpProtocol.RequestHeader();
    if (!WriteAll(header)) {
        return;
    }
    QELLogging::LogInfo(mLogName, "The HTTP Header was sent successfully.");
    LogHeader("Sent Header ", header);
    mStreamCommunicator->SetupReadContinued(kReadSize);
    SetFsmState(&BackendRequestHandlerFsm::FsmStateWaitHttpConfirmation,
                "FsmStateWaitHttpConfirmation");
}

void BackendRequestHandlerFsm::FsmStateWaitHttpConfirmation(int eventId, int eventInfo) {
    if (eventId != kStreamEvent) {
        DefaultEventHandler(eventId, eventInfo);
        return;
    }
    if (eventInfo == FsmStreamCommunicatorIf::eReadContinuedData) {
        HandleConfirmation();
    }
}

void BackendRequestHandlerFsm::HandleConfirmation() {
    const std::size_t sizeBefore = mResponse.size();
    if (!AppendResponse() || IsStillIncomplete(sizeBefore)) {
        return;
    }
    mHttpProtocol.ParseResponse(mResponse);
    const std::uint16_t status = mHttpProtocol.ResponseStatusCode();
    if (status == HttpProtocol::kStatusIncomplete) {
        return;
    }
    if (status != kStatusContinue) {
        QELLogging::LogError(mLogName, "Unexpected HTTP response: ", status, "!");
        EndFsm({}, ReturnCode::kHttpError);
        return;
    }
    LogHeader("Received Response", mHttpProtocol.ResponseHeader());
    mResponse.clear();
    if (!WriteAll(mHttpProtocol.RequestPayload())) {
        return;
    }
    QELLogging::LogInfo(mLogName, "The Payload was sent successfully.");
    SetFsmState(&BackendRequestHandlerFsm::FsmStateWaitingResponse, "FsmStateWaitingResponse");
}

bool BackendRequestHandlerFsm::IsStillIncomplete(std::size_t sizeBefore) const {
    // Parsing everything anew with each piece would cost a hostile peer's flood of small reads a
    // quadratic time; only the end of a header can change what the first parse has found.
    if (mHttpProtocol.ResponseStatusCode() != HttpProtocol::kStatusIncomplete) {
        return false;
    }
    return mResponse.find("\r\n\r\n", sizeBefore - std::min<std::size_t>(sizeBefore, 3)) ==
           std::string::npos;
}

void BackendRequestHandlerFsm::FsmStateWaitingResponse(int eventId, int eventInfo) {
    if (eventId != kStreamEvent) {
        DefaultEventHandler(eventId, eventInfo);
        return;
    }
    switch (eventInfo) {
        case FsmStreamCommunicatorIf::eReadContinuedData:
            AppendResponse();
            break;
        case FsmStreamCommunicatorIf::eConnectionClosed:
            QELLogging::LogInfo(mLogName, "The HTTP Response was received successfully.");
            HandleHttpResponse(mResponse);
            break;
        default:
            QELLogging::LogError(mLogName, "Read error!");
            EndFsm({}, ReturnCode::kTransferError);
            break;
    }
}

void BackendRequestHandlerFsm::DefaultEventHandler(int eventId, int /*eventInfo*/) {
    if (eventId == kTimeoutEvent) {
        EndFsm({}, ReturnCode::kTimeout);
        return;
    }
    QELLogging::LogError(mLogName, "Unknown event ", eventId, "!");
    EndFsm({}, ReturnCode::kInternalError);
}

void BackendRequestHandlerFsm::HandleHttpResponse(const std::string& response) {
    mHttpProtocol.ParseResponse(response);
    const std::string& header = mHttpProtocol.ResponseHeader();
    const std::string& payload = mHttpProtocol.ResponsePayload();
    LogHeader("Received Response", header);

    const std::uint16_t status = mHttpProtocol.ResponseStatusCode();
    if (status != kStatusOk) {
        QELLogging::LogError(mLogName, "Unexpected HTTP response: ", status, "!");
        if (Contains(header, kErrorContentType)) {
            EndFsm(payload, ReturnCode::kHttpError);
            return;
        }
        QELLogging::LogInfo(mLogName, "Unknown type of payload received");
        EndFsm({}, ReturnCode::kHttpError);
        return;
    }
    if (payload.empty()) {
        QELLogging::LogError(mLogName, "Empty HTTP Response received!");
        EndFsm({}, ReturnCode::kEmptyResponse);
        return;
    }
    if (!Contains(header, kResponseContentType)) {
        QELLogging::LogInfo(mLogName, "Unknown type of payload received");
        EndFsm({}, ReturnCode::kUnknownPayload);
        return;
    }
    QELLogging::LogInfo(mLogName, "HTTP response received successfully");
    EndFsm(payload, ReturnCode::kSuccess);
}

void BackendRequestHandlerFsm::LogHeader(const char* what, const std::string& header) const {
    QELLogging::LogDebug(mLogName, what, "\n-----\n", header, "\n-----\n\n");
}

bool BackendRequestHandlerFsm::WriteAll(const std::string& text) {
    const auto written = mStreamCommunicator->Write(
        reinterpret_cast<const unsigned char*>(text.data()), text.size(), nullptr);
    if (written >= 0 && static_cast<std::size_t>(written) == text.size()) {
        return true;
    }
    QELLogging::LogError(mLogName, "Write error: ", text.size(), "!");
    EndFsm({}, ReturnCode::kTransferError);
    return false;
}

bool BackendRequestHandlerFsm::AppendResponse() {
    const auto data = TakeEventData<fsm::FsmEventDataStreamCommunicator>();
    if (!data) {
        DefaultEventHandler(kStreamEvent, FsmStreamCommunicatorIf::eReadContinuedData);
        return false;
    }
    if (data->data.size() > kMaxResponseSize - mResponse.size()) {
        QELLogging::LogError(mLogName, "Read error!");
        EndFsm({}, ReturnCode::kTransferError);
        return false;
    }
    mResponse.append(data->data.begin(), data->data.end());
    return true;
}

void BackendRequestHandlerFsm::EndFsm(const std::string& response, ReturnCode code) {
    const auto dispatcher = GetDispatcher();
    if (!dispatcher) {
        return;
    }
    dispatcher->ClearEvent(shared_from_this(), kTimeoutEvent, false);
    auto data = std::make_unique<BackendResponseEventData>();
    data->response = response;
    data->returnCode = code;
    RaiseEvent(mTarget, mTargetEvent, 0, std::move(data));
    StopFsm();
}

void BackendRequestHandlerFsm::OnTerminate() {
    QELLogging::LogInfo(mLogName, "OnTerminate");
    if (mStreamCommunicator) {
        mStreamCommunicator->StopFsm();
        mStreamCommunicator.reset();
    }
    mConnectorFsm.reset();
}

}  // namespace vintrel
