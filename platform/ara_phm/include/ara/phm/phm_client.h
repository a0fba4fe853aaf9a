#pragma once

#include <string>

namespace ara::phm {

/// What supervision entities and health channels need of the process's client.
class Phm_client_interface {
public:
    virtual ~Phm_client_interface() = default;

    /// The instance under which health management knows the process.
    virtual const std::string& GetInstanceId() const = 0;
};

/// The process as a client of platform health management.
class Phm_client : public Phm_client_interface {
public:
    explicit Phm_client(std::string instanceId);

    const std::string& GetInstanceId() const override;

private:
    std::string mInstanceId;
};

}  // namespace ara::phm
