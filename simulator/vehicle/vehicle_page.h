#pragma once

#include <thread>

#include "simulator/page/page_server.h"
#include "simulator/vehicle/options.h"

namespace simulator::vehicle {

/// Serves the page of this vehicle's unit, on a thread of its own, from construction to
/// destruction. The page's commands are passed to `ask`, like those of the control socket; the
/// service and vintrel-provision are expected in this program's directory.
class VehiclePage {
public:
    /// Throws std::system_error if the port is unavailable.
    VehiclePage(const Options& options, page::UnitSettings::Ask ask);
    /// Stops the service if the page has started it.
    ~VehiclePage();

    VehiclePage(const VehiclePage&) = delete;
    VehiclePage& operator=(const VehiclePage&) = delete;

    /// The URL to open in the browser.
    std::string Address() const { return mServer.Address(); }

private:
    page::PageServer mServer;
    std::thread mThread;
};

}  // namespace simulator::vehicle
