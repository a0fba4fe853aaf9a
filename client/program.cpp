#include "client/program.h"

#include <exception>
#include <memory>
#include <string_view>

#include "client/vintrel_client_fsm_if.h"
#include "fsm/event_dispatcher.h"
#include "logging/qel_logging.h"

namespace vintrel {

using qel_logging::QELLogging;

namespace {

const char* const kLogApplicationId = "VT";
const char* const kVersion = "2.20.9-support-0.7.2";

bool IsFactoryResetRequested(int argc, const char* const* argv) {
    return argc > 1 && std::string_view(argv[argc - 1]) == "-reset";
}

int Dispatch(fsm::EventDispatcher& dispatcher) {
    try {
        if (!dispatcher.DispatchEvents()) {
            QELLogging::LogError("Dispatcher Error!");
        }
        return 0;
    } catch (const std::exception& exception) {
        QELLogging::LogError("Dispatcher Error, exception: ", exception.what());
    } catch (...) {
        QELLogging::LogError("Dispatcher Error! Unknown exception!");
    }
    return 1;
}

}  // namespace

int RunProgram(int argc, const char* const* argv) {
    QELLogging::InitLogging(kLogApplicationId);
    const bool factoryReset = IsFactoryResetRequested(argc, argv);

    // Declared in this order so that the client goes before the dispatcher.
    const auto dispatcher = std::make_shared<fsm::EventDispatcher>("EventDispatcher", true);
    const std::shared_ptr<VintrelClientFsmIf> client = VintrelClientFsmIf::Create(factoryReset);
    if (!client->StartFsm(dispatcher)) {
        QELLogging::LogFatal("Failed to start Vintrel Client!");
        return 0;
    }
    QELLogging::LogInfo("Vintrel Client started.");
    QELLogging::LogInfo("Vintrel Client version: ", kVersion);
    return Dispatch(*dispatcher);
}

}  // namespace vintrel
