#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include <someip/client/service_client.h>

namespace someip {

/// What the communication middleware of one process shares: a pool of two threads, one node for
/// each deployment file, and one client for each service instance in use. Any thread.
class Runtime {
public:
    /// The process's runtime, which its holders own: it starts with the first of them and ends with
    /// the last.
    static std::shared_ptr<Runtime> Instance();

    Runtime();

    /// Client of a service by its name and instance text, with the deployment file that
    /// DefaultDeploymentPath names at the time.
    std::shared_ptr<ServiceClient> Client(const std::string& name, const std::string& instance);

private:
    std::shared_ptr<ClientNode> Node(const std::string& path);

    std::shared_ptr<WorkerPool> mPool;
    std::mutex mMutex;
    std::map<std::string, std::weak_ptr<ClientNode>> mNodes;
    std::map<std::string, std::weak_ptr<ServiceClient>> mClients;
};

}  // namespace someip
