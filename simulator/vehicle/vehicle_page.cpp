#include "simulator/vehicle/vehicle_page.h"

#include <filesystem>
#include <utility>
#include <vector>

namespace simulator::vehicle {

namespace {

constexpr const char* kServiceLog = "/var/log/vintrel-client.log";

std::vector<page::UnitSettings> Settings(const Options& options, page::UnitSettings::Ask ask) {
    const auto programs = std::filesystem::canonical("/proc/self/exe").parent_path();
    page::UnitSettings settings;
    settings.name = "unit";
    settings.vehicle = std::move(ask);
    if (!options.pageBackend.empty()) {
        settings.backend = page::AskAt(options.pageBackend);
    }
    settings.logFile = kServiceLog;
    settings.journalFile = options.pageJournal;
    settings.service = {programs / "vintrel-client"};
    settings.provision = {programs / "vintrel-provision"};
    return {std::move(settings)};
}

}  // namespace

VehiclePage::VehiclePage(const Options& options, page::UnitSettings::Ask ask)
    : mServer(options.pagePort, Settings(options, std::move(ask))),
      mThread([this] { mServer.Run(); }) {}

VehiclePage::~VehiclePage() {
    mServer.Stop();
    mThread.join();
}

}  // namespace simulator::vehicle
