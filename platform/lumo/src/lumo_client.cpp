#include <lumo/lumo_client.h>

namespace lumo {

LumoClient::LumoClient(std::shared_ptr<LumoClientServices> services)
    : mServices(std::move(services)) {}

LumoClient::~LumoClient() = default;

}  // namespace lumo
