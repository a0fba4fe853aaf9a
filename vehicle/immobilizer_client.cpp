#include "vehicle/immobilizer_client.h"

#include "vehicle/immobilizer_client_impl.h"

namespace immobilizerclient {

ImmobilizerClient::ImmobilizerClient() : mImpl(std::make_shared<ImmobilizerClientImpl>()) {}

ImmobilizerClient::~ImmobilizerClient() = default;

void ImmobilizerClient::Start() {
    mImpl->Start();
}

void ImmobilizerClient::Stop() {
    mImpl->Stop();
}

void ImmobilizerClient::AssignCallback(ImmobilizerCallbackIf* callback) {
    mImpl->AssignCallback(callback);
}

void ImmobilizerClient::GetImmobilizerVin() {
    mImpl->GetImmobilizerVin();
}

}  // namespace immobilizerclient
