#include <someip/client/runtime.h>
#include <someip/discovery/deployment.h>

namespace someip {

namespace {

constexpr std::size_t kThreads = 2;

}  // namespace

std::shared_ptr<Runtime> Runtime::Instance() {
    static std::mutex mutex;
    static std::weak_ptr<Runtime> current;
    const std::lock_guard<std::mutex> lock(mutex);
    std::shared_ptr<Runtime> runtime = current.lock();
    if (!runtime) {
        runtime = std::make_shared<Runtime>();
        current = runtime;
    }
    return runtime;
}

Runtime::Runtime() : mPool(std::make_shared<WorkerPool>(kThreads)) {}

std::shared_ptr<ServiceClient> Runtime::Client(const std::string& name,
                                               const std::string& instance) {
    const std::string path = DefaultDeploymentPath();
    const std::lock_guard<std::mutex> lock(mMutex);
    std::weak_ptr<ServiceClient>& known = mClients[path + '\n' + name + '\n' + instance];
    std::shared_ptr<ServiceClient> client = known.lock();
    if (!client) {
        client = std::make_shared<ServiceClient>(Node(path), name, instance);
        known = client;
    }
    return client;
}

std::shared_ptr<ClientNode> Runtime::Node(const std::string& path) {
    std::weak_ptr<ClientNode>& known = mNodes[path];
    std::shared_ptr<ClientNode> node = known.lock();
    if (!node) {
        node = std::make_shared<ClientNode>(mPool, path);
        known = node;
    }
    return node;
}

}  // namespace someip
