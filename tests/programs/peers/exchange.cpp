// One exchange with the server that the connector's file names, by the real machines on the real
// loop: exchange CONTAINER-FILE. The result goes to stdout as JSON, the log to stderr.

#include <exception>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>
#include <utility>

#include <nlohmann/json.hpp>

#include "client/certificate_messages.h"
#include "client/fsm_factory.h"
#include "client/url_data.h"
#include "fsm/event_dispatcher.h"
#include "logging/qel_logging.h"

namespace vintrel {

namespace {

constexpr const char* kTransactionType = "QUBA-GenerateTIVCert-C003";

/// Asks the connector for the URL as soon as it may, and starts the exchange with it.
class Exchange : public fsm::Fsm {
public:
    Exchange(const FsmFactory& factory, std::string request)
        : Fsm("Exchange"),
          mConnector(factory.NewZemConnectorFsm(kTransactionType)),
          mHandler(factory.NewBackendRequestHandlerFsm()),
          mRequest(std::move(request)) {}

    bool StartFsm(const std::shared_ptr<fsm::EventDispatcher>& dispatcher) {
        SetupFsm(dispatcher, nullptr, 0);
        SetFsmState(&Exchange::FsmStateRunning, "FsmStateRunning");
        return mConnector->StartFsm(dispatcher, shared_from_this(), kConnectorEvent);
    }

    /// What the handler has reported.
    const BackendResponseEventData& Result() const { return *mResult; }

protected:
    void OnTerminate() override { mConnector->StopFsm(); }

private:
    enum EventId : int { kConnectorEvent, kResultEvent };

    void FsmStateRunning(int eventId, int eventInfo) {
        if (eventId == kResultEvent) {
            mResult = TakeEventData<BackendResponseEventData>();
            End(mResult != nullptr);
        } else if (eventInfo == ZemConnectorFsmIf::kInfoInvocationUrl) {
            StartHandler(TakeEventData<ZemConnectorFsmIf::InvocationUrlEventData>());
        } else if (eventInfo == ZemConnectorFsmIf::kInfoActivationUpdate) {
            mConnector->GetUrl();
        }
    }

    void StartHandler(const std::unique_ptr<ZemConnectorFsmIf::InvocationUrlEventData>& answer) {
        UrlData url;
        if (!answer || !answer->success || !GetUrlData(answer->url, url) ||
            !mHandler->StartFsm(GetDispatcher(), shared_from_this(), kResultEvent, mRequest,
                                mConnector, url)) {
            End(false);
        }
    }

    void End(bool hasResult) {
        GetDispatcher()->ExitDispatching(hasResult);
        StopFsm();
    }

    std::shared_ptr<ZemConnectorFsmIf> mConnector;
    std::shared_ptr<BackendRequestHandlerFsmIf> mHandler;
    std::string mRequest;
    std::unique_ptr<BackendResponseEventData> mResult;
};

std::string ReadFile(const char* path) {
    std::ifstream file(path, std::ios::binary);
    file.exceptions(std::ios::badbit | std::ios::failbit);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

nlohmann::json ToJson(const BackendResponseEventData& result) {
    protobuf::CertificateResponse response;
    std::string errorText;
    const bool isSuccess = result.returnCode == ReturnCode::kSuccess;
    const bool isMessage = isSuccess ? protobuf::ParseResponse(result.response, response)
                                     : protobuf::ParseErrorResponse(result.response, errorText);
    return {{"code", static_cast<int>(result.returnCode)},
            {"size", result.response.size()},
            {"isMessage", isMessage},
            {"text", isSuccess ? response.certificate : errorText}};
}

int Run(const char* containerPath) {
    qel_logging::QELLogging::InitLogging("VT");
    protobuf::CertificateRequestParams params;
    params.operationTypeId = "peers";
    const auto dispatcher = std::make_shared<fsm::EventDispatcher>("EventDispatcher", true);
    const FsmFactory factory;
    const auto exchange = std::make_shared<Exchange>(
        factory, protobuf::CreateProtobuffer(params, ReadFile(containerPath)));
    if (!exchange->StartFsm(dispatcher) || !dispatcher->DispatchEvents()) {
        return 1;
    }
    std::cout << ToJson(exchange->Result()) << std::endl;
    return 0;
}

}  // namespace

}  // namespace vintrel

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: exchange CONTAINER-FILE\n";
        return 2;
    }
    try {
        return vintrel::Run(argv[1]);
    } catch (const std::exception& error) {
        std::cerr << "exchange: " << error.what() << "\n";
        return 1;
    }
}
