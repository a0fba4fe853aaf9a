#include "vehicle/immobilizer_wexa_impl.h"

#include "logging/qel_logging.h"

namespace vintrel {

using qel_logging::QELLogging;

std::shared_ptr<ImmobilizerIf> ImmobilizerIf::Create(ImmobilizerCbIf& callback) {
    return std::make_shared<ImmobilizerWexaImpl>(callback);
}

ImmobilizerWexaImpl::ImmobilizerWexaImpl(ImmobilizerCbIf& callback)
    : mCallback(callback), mClient(std::make_shared<immobilizerclient::ImmobilizerClient>()) {}

ImmobilizerWexaImpl::~ImmobilizerWexaImpl() {
    mClient->Stop();
}

bool ImmobilizerWexaImpl::ImmobilizerInit() {
    mClient->AssignCallback(this);
    mClient->Start();
    return true;
}

bool ImmobilizerWexaImpl::GetVin() {
    if (!mConnected) {
        QELLogging::LogError("Immobilizer: Not connected to Immobilizer Service!");
        return false;
    }
    mClient->GetImmobilizerVin();
    return true;
}

void ImmobilizerWexaImpl::ImmobilizerVinReceived(const std::string& vin) {
    if (vin.empty()) {
        QELLogging::LogError("Immobilizer: FAILED to get VIN from Immobilizer Service!");
    } else {
        QELLogging::LogInfo("Immobilizer: VIN received successfully");
    }
    mCallback.ImmobilizerVinReceivedCb(vin);
}

void ImmobilizerWexaImpl::ConnectionStateNotification(bool connected) {
    mConnected = connected;
    QELLogging::LogInfo("Immobilizer: Service Connection state changed to ",
                        (connected ? "Connected" : "Disconnected"));
    mCallback.ImmobilizerConnectionStateChangeCb(connected);
}

}  // namespace vintrel
