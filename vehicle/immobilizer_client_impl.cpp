#include "vehicle/immobilizer_client_impl.h"

#include <exception>

#include <lumoobjects_LUMO/immobilizer_service.h>
#include <wexa_client/client_service_utils.h>

#include "logging/qel_logging.h"

namespace immobilizerclient {

using qel_logging::QELLogging;
using wexa_client::ClientServiceUtils;

namespace {

constexpr char kConfigPath[] = "/var/run/qel/config/wexa-client/ClientConfig.json";
constexpr char kClientName[] = "Immobilizer client started";
constexpr char kServiceKey[] = "Immobilizer";

}  // namespace

ImmobilizerClientImpl::ImmobilizerClientImpl() {
    try {
        mClientServiceBase = ClientServiceUtils::CreateClientServiceBase(kConfigPath);
        const auto services = ClientServiceUtils::CreateClientServices(
            *mClientServiceBase, lumoobjects_LUMO::ImmobilizerService::getServiceName(),
            kClientName);
        mAccess = wexa_client::CreateClient<ImmobilizerAccess>(services);
    } catch (const std::exception& exception) {
        QELLogging::LogError(" Exception: ", exception.what());
    } catch (...) {
        QELLogging::LogError("Unknown exception ");
    }
}

ImmobilizerClientImpl::~ImmobilizerClientImpl() {
    if (mAccess) {
        StopConnection();
    }
}

void ImmobilizerClientImpl::Start() {
    if (mAccess) {
        mAccess->start();
    }
}

void ImmobilizerClientImpl::Stop() {
    if (!mAccess) {
        return;
    }
    StopConnection();
    mAccess->Stop();
}

void ImmobilizerClientImpl::StopConnection() {
    mClientServiceBase->elementRegistry->unsubscribeFromAll();
    mClientServiceBase->requestManager->stop();
    mClientServiceBase->eventManager->stop();
    mClientServiceBase->taskManager->stop();
    mClientServiceBase->websocketManagerFactory->stopAndClearAll();
    mClientServiceBase->websocketManagerFactory->stopManager(kServiceKey);
}

void ImmobilizerClientImpl::AssignCallback(ImmobilizerCallbackIf* callback) {
    if (mAccess) {
        mAccess->AssignCallback(callback);
    }
}

void ImmobilizerClientImpl::GetImmobilizerVin() {
    if (mAccess) {
        mAccess->GetImmobilizerVin();
    }
}

}  // namespace immobilizerclient
