#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "backend/http_protocol.h"
#include "client/backend_request_handler_fsm_if.h"
#include "fsm/fsm_stream_communicator_if.h"

namespace vintrel {

/// One HTTP `PUT` to the backend, by way of the connector's socket, with a limit of 30 seconds.
///
/// The header is sent first and requests an interim response (100-continue, RFC 9110); the body
/// follows it. The peer ends the response by closing; a response beyond 16 MiB counts as a read
/// error. After its one report the machine has ended.
///
/// | State                       | Waits for              | Then                               |
/// |-----------------------------|------------------------|------------------------------------|
/// | FsmStateConnect             | its own first event    | FsmStateWaitingConnect             |
/// | FsmStateWaitingConnect      | the connector's socket | FsmStateWaitHttpConfirmation       |
/// | FsmStateWaitHttpConfirmation| the interim response   | FsmStateWaitingResponse            |
/// | FsmStateWaitingResponse     | the peer's closing     | report and end                     |
///
/// In each state a failure, the time limit or an unknown event also leads to report and end.
/// While the interim response is awaited, stream events other than data are ignored.
class BackendRequestHandlerFsm : public BackendRequestHandlerFsmIf {
public:
    BackendRequestHandlerFsm();

    bool StartFsm(std::shared_ptr<fsm::EventDispatcher> dispatcher,
                  std::shared_ptr<fsm::Fsm> target, int targetEvent, std::string request,
                  std::shared_ptr<ZemConnectorFsmIf> connectorFsm, const UrlData& urlData) override;

protected:
    void OnTerminate() override;

private:
    enum EventId : int {
        kConnectEvent = 0,
        kSocketEvent = 1,
        kStreamEvent = 2,
        kTimeoutEvent = 3,
    };

    void FsmStateConnect(int eventId, int eventInfo);
    void FsmStateWaitingConnect(int eventId, int eventInfo);
    void FsmStateWaitHttpConfirmation(int eventId, int eventInfo);
    void FsmStateWaitingResponse(int eventId, int eventInfo);
    void DefaultEventHandler(int eventId, int eventInfo);

    void CreateHttpRequest(const std::string& body);
    void HandleSocket();
    void HandleConfirmation();
    void HandleHttpResponse(const std::string& response);
    void EndFsm(const std::string& response, ReturnCode code);

    void LogHeader(const char* what, const std::string& header) const;
    /// Sends all of `text`, or ends the exchange and returns false.
    bool WriteAll(const std::string& text);

    /// Appends the data of the current stream event to `mResponse`, or ends the exchange and
    /// returns false.
    bool AppendResponse();

    /// True if what has arrived can't hold the end of a header.
    bool IsStillIncomplete(std::size_t sizeBefore) const;

    std::shared_ptr<ZemConnectorFsmIf> mConnectorFsm;
    std::shared_ptr<fsm::FsmStreamCommunicatorIf> mStreamCommunicator;
    std::string mRequestBody;
    std::string mResponse;
    UrlData mUrlData;
    nuro_common::HttpProtocol mHttpProtocol;
};

}  // namespace vintrel
