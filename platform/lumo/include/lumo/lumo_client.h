#pragma once

#include <memory>

#include <lumo/lumo_client_services.h>

namespace lumo {

/// Base of the clients of services.
class LumoClient {
public:
    /// `services` is not null.
    explicit LumoClient(std::shared_ptr<LumoClientServices> services);

    /// Registers for services; called once, by the owner, on its thread.
    virtual void start() = 0;

    virtual ~LumoClient();

    LumoClient(const LumoClient&) = delete;
    LumoClient& operator=(const LumoClient&) = delete;

protected:
    const std::shared_ptr<LumoClientServices>& getServices() const { return mServices; }

private:
    std::shared_ptr<LumoClientServices> mServices;
};

}  // namespace lumo
