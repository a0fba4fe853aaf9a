#include "vehicle/clamp_control_wexa_impl.h"

#include "logging/qel_logging.h"
#include "vehicle/clamp_control_handler.h"

namespace vintrel {

using qel_logging::QELLogging;

std::shared_ptr<ClampControlIf> ClampControlIf::Create(ClampControlCbIf& callback) {
    return std::make_shared<ClampControlWexaImpl>(callback);
}

ClampControlWexaImpl::ClampControlWexaImpl(ClampControlCbIf& callback)
    : mCallback(callback), mHandler(std::make_shared<nuro_common::ClampControlHandler>(this)) {}

ClampControlWexaImpl::~ClampControlWexaImpl() {
    mSubscribed = false;
}

bool ClampControlWexaImpl::Subscribe() {
    QELLogging::LogInfo("ClampControlWexaImpl:", "Subscribe");
    if (mSubscribed) {
        QELLogging::LogInfo("ClampControlWexaImpl: Already subscribed to Clamp 15");
        return false;
    }
    mHandler->ClampControlInit();
    mSubscribed = true;
    return true;
}

void ClampControlWexaImpl::ClampStateChangeCb(const std::string& /*clampName*/, bool state) {
    if (mSubscribed) {
        mCallback.ClampStateChangeCb(state);
    }
}

void ClampControlWexaImpl::ClampControlConnectionStateChangeCb(bool connected) {
    QELLogging::LogInfo("ClampControlWexaImpl: Wexa service connection state changed to ",
                        (connected ? "1" : "0"));
    if (connected) {
        mHandler->SubscribeNB();
    }
}

void ClampControlWexaImpl::ClampSubscribedCb() {
    QELLogging::LogInfo("ClampControlWexaImpl: Subscribed to Clamp 15");
}

}  // namespace vintrel
