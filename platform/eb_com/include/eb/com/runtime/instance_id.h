#pragma once

namespace eb::com::runtime {

/// Names of service instances: the instance id of the deployment in decimal digits, or Any.
class Instance_id {
public:
    /// Any instance of a service.
    static constexpr const char* Any = "Any";
};

}  // namespace eb::com::runtime
