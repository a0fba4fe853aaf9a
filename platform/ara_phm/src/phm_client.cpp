#include <utility>

#include <ara/phm/phm_client.h>

namespace ara::phm {

Phm_client::Phm_client(std::string instanceId) : mInstanceId(std::move(instanceId)) {}

const std::string& Phm_client::GetInstanceId() const {
    return mInstanceId;
}

}  // namespace ara::phm
