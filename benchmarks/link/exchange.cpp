// One exchange with the backend in a process of its own: connector library, connector machine and
// request handler, as the client uses them. The group `link` sets it beside curl.

#include <chrono>
#include <exception>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include <zem_connector/zem_connector.h>

#include "backend/backend_request_handler_fsm.h"
#include "backend/zem_connector_fsm.h"
#include "client/backend_response_event_data.h"
#include "client/fsm_factory.h"
#include "client/url_data.h"
#include "fsm/event_dispatcher.h"
#include "fsm/fsm.h"
#include "logging/qel_logging.h"

namespace vintrel {

// The client's own factory would bring the store and the vehicle's libraries into this program.

std::shared_ptr<BackendRequestHandlerFsmIf> FsmFactory::NewBackendRequestHandlerFsm() const {
    return std::make_shared<BackendRequestHandlerFsm>();
}

std::shared_ptr<HsmIf> FsmFactory::NewHsm() const {
    return nullptr;
}

std::shared_ptr<ZemConnectorFsmIf> FsmFactory::NewZemConnectorFsm(const std::string& name) const {
    return std::make_shared<ZemConnectorFsm>(*this, name);
}

std::unique_ptr<zem_connector::ZemConnector> FsmFactory::NewZemConnector(
    zem_connector::ZemSessionCallbackIf* sessionCallback,
    zem_connector::ZemPubSubCallbackIf* pubSubCallback) const {
    return std::make_unique<zem_connector::ZemConnector>(sessionCallback, pubSubCallback);
}

std::shared_ptr<process_lifecycle_adapter::ProcessLifecycleAdapterIf>
FsmFactory::NewProcessLifecycleAdapter(
    process_lifecycle_adapter::ProcessLifecycleAdapterCallbackIf* /*callback*/) const {
    return nullptr;
}

}  // namespace vintrel

namespace {

using Clock = std::chrono::steady_clock;
using vintrel::ReturnCode;
using vintrel::ZemConnectorFsmIf;

constexpr int kEventConnector = 0;
constexpr int kEventResponse = 1;

/// Asks for the URL, waits until the operation is activated, sends the request, and ends the loop
/// with the answer.
class Exchange : public fsm::Fsm {
public:
    explicit Exchange(std::string request) : Fsm("Exchange"), mRequest(std::move(request)) {}

    bool StartFsm(const std::shared_ptr<fsm::EventDispatcher>& dispatcher) {
        SetupFsm(dispatcher, nullptr, 0);
        SetFsmState(&Exchange::FsmStateConnector, "FsmStateConnector");
        mConnector = mFactory.NewZemConnectorFsm("QUBA-GenerateTIVCert-C003");
        return mConnector->StartFsm(dispatcher, shared_from_this(), kEventConnector);
    }

    /// The handler's return code; 0 is a certificate.
    int Result() const { return static_cast<int>(mResult); }
    /// From the start of the request handler to the answer.
    double Seconds() const { return std::chrono::duration<double>(mEnd - mStart).count(); }
    const std::string& Response() const { return mResponse; }

protected:
    void OnTerminate() override {
        mConnector->StopFsm();
        mConnector.reset();
        mHandler.reset();
    }

private:
    void FsmStateConnector(int /*eventId*/, int eventInfo) {
        if (eventInfo == ZemConnectorFsmIf::kInfoInvocationUrl) {
            const auto url = TakeEventData<ZemConnectorFsmIf::InvocationUrlEventData>();
            mHasUrl = url && url->success && vintrel::GetUrlData(url->url, mUrl);
            if (!mHasUrl) {
                End();
                return;
            }
        } else if (const auto state = TakeEventData<ZemConnectorFsmIf::StateUpdateEventData>()) {
            mActivated = state->activated;
            if (eventInfo == ZemConnectorFsmIf::kInfoStatusUpdate &&
                state->status == zem_connector::SessionStatus::kStarted) {
                mConnector->GetUrl();
            }
        }
        if (mHasUrl && mActivated) {
            Send();
        }
    }

    void FsmStateResponse(int eventId, int /*eventInfo*/) {
        if (eventId != kEventResponse) {
            return;
        }
        if (const auto response = TakeEventData<vintrel::BackendResponseEventData>()) {
            mResult = response->returnCode;
            mResponse = std::move(response->response);
        }
        mEnd = Clock::now();
        End();
    }

    void Send() {
        SetFsmState(&Exchange::FsmStateResponse, "FsmStateResponse");
        mStart = Clock::now();
        mHandler = mFactory.NewBackendRequestHandlerFsm();
        if (!mHandler->StartFsm(GetDispatcher(), shared_from_this(), kEventResponse,
                                std::move(mRequest), mConnector, mUrl)) {
            End();
        }
    }

    void End() {
        GetDispatcher()->ExitDispatching(true);
        StopFsm();
    }

    vintrel::FsmFactory mFactory;
    std::shared_ptr<ZemConnectorFsmIf> mConnector;
    std::shared_ptr<vintrel::BackendRequestHandlerFsmIf> mHandler;
    std::string mRequest;
    std::string mResponse;
    vintrel::UrlData mUrl;
    bool mHasUrl{false};
    bool mActivated{false};
    ReturnCode mResult{ReturnCode::kInternalError};
    Clock::time_point mStart;
    Clock::time_point mEnd;
};

std::string ReadFile(const char* path) {
    std::ifstream file(path, std::ios::binary);
    std::string content{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (!file.good() && !file.eof()) {
        throw std::runtime_error(std::string("cannot read ") + path);
    }
    return content;
}

/// Writes the answer's body to the file and the seconds of the exchange to the standard output;
/// ends with the handler's return code.
int Run(const char* requestPath, const char* responsePath) {
    qel_logging::QELLogging::InitLogging("VT");
    const auto dispatcher = std::make_shared<fsm::EventDispatcher>("EventDispatcher", true);
    const auto exchange = std::make_shared<Exchange>(ReadFile(requestPath));
    if (!exchange->StartFsm(dispatcher) || !dispatcher->DispatchEvents()) {
        throw std::runtime_error("the exchange did not start");
    }
    std::ofstream response(responsePath, std::ios::binary);
    response << exchange->Response();
    response.close();
    if (!response) {
        throw std::runtime_error(std::string("cannot write ") + responsePath);
    }
    std::cout << exchange->Seconds() << std::endl;
    return exchange->Result();
}

}  // namespace

int main(int argc, char* argv[]) {
    if (argc != 3) {
        std::cerr << "usage: bench-exchange REQUEST-FILE RESPONSE-FILE\n";
        return 2;
    }
    try {
        return Run(argv[1], argv[2]);
    } catch (const std::exception& exception) {
        std::cerr << exception.what() << std::endl;
        return 1;
    }
}
