#pragma once

#include <thread>

#include "simulator/page/page_server.h"
#include "simulator/vehicle/options.h"

namespace simulator::vehicle {

/// Serves the page of the unit that this vehicle is around, on a thread of its own, from
/// construction to destruction. The page's commands go to `ask`, as those of the control socket do;
/// the service and vintrel-provision are the programs beside this one.
class VehiclePage {
public:
    /// Throws std::system_error if the port can't be had.
    VehiclePage(const Options& options, page::UnitSettings::Ask ask);
    /// Ends the service if the page has started it.
    ~VehiclePage();

    VehiclePage(const VehiclePage&) = delete;
    VehiclePage& operator=(const VehiclePage&) = delete;

    /// What to open in the browser.
    std::string Address() const { return mServer.Address(); }

private:
    page::PageServer mServer;
    std::thread mThread;
};

}  // namespace simulator::vehicle
