#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace someip {

/// Ids and transport binding of one service instance, as the deployment file has them
/// (docs/someip.md shows the file).
struct ServiceDeployment {
    std::string name;
    std::uint16_t serviceId{0};
    std::uint16_t instanceId{1};
    std::uint8_t interfaceVersion{1};
    /// IPv4 or IPv6 address in numbers.
    std::string address{"127.0.0.1"};
    std::uint16_t port{0};
    /// Event ids by the event's or field's name.
    std::map<std::string, std::uint16_t> events;
    /// Time between two watch requests of a client.
    std::chrono::milliseconds cycle{500};
    /// Without an answer for this long the service counts as gone.
    std::chrono::milliseconds ttl{3000};

    bool operator==(const ServiceDeployment& other) const;
};

/// Instance text that stands for the first instance in the file.
constexpr const char* kAnyInstance = "Any";

/// Value of SOMEIP_DEPLOYMENT, or /var/run/qel/config/someip/Deployment.json.
std::string DefaultDeploymentPath();

/// Throws std::runtime_error with a text for the user if the text is no deployment.
std::vector<ServiceDeployment> ParseDeployment(const std::string& json);
/// The same for a file of at most 1 MiB.
std::vector<ServiceDeployment> ReadDeployment(const std::string& path);

/// Text that ParseDeployment reads back to the same services.
std::string FormatDeployment(const std::vector<ServiceDeployment>& services);

/// Where the transport learns a service's ids and endpoint. Service discovery would be another
/// implementation of this interface. Called from one thread at a time.
class ServiceLocator {
public:
    virtual ~ServiceLocator() = default;

    /// Nothing if the service is not known at present; std::runtime_error if the source of the
    /// knowledge can't be read.
    virtual std::optional<ServiceDeployment> Locate(const std::string& name,
                                                    const std::string& instance) = 0;
};

/// Reads the deployment file at each call, so that a changed file counts at once.
class DeploymentFileLocator : public ServiceLocator {
public:
    explicit DeploymentFileLocator(std::string path);

    std::optional<ServiceDeployment> Locate(const std::string& name,
                                            const std::string& instance) override;

private:
    std::string mPath;
};

}  // namespace someip
