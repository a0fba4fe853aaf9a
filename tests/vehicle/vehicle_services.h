#pragma once

#include <string>

#include <service_access/server.h>

#include "testing/environment.h"
#include "testing/temporary_directory.h"

namespace vehicle_test {

/// A server of the service access layer, and the configuration by which this process finds it.
class VehicleServices {
public:
    VehicleServices() {
        WriteConfig(R"({"socketPath":")" + SocketPath() +
                    R"(","queryTimeLimitMs":60000,"subscribeTimeLimitMs":60000,)"
                    R"("reconnectInitialMs":1})");
    }

    void WriteConfig(const std::string& text) const { mDirectory.Write("ClientConfig.json", text); }

    std::string ConfigPath() const { return mDirectory.File("ClientConfig.json"); }

    service_access::Server& Server() { return mServer; }

private:
    std::string SocketPath() const { return mDirectory.File("access.sock"); }

    const testing_support::TemporaryDirectory mDirectory;
    const testing_support::EnvironmentVariable mVariable{"WEXA_CLIENT_CONFIG", ConfigPath()};
    service_access::Server mServer{SocketPath()};
};

}  // namespace vehicle_test
