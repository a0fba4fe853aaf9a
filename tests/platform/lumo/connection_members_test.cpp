#include <memory>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include <service_access/connection.h>

#include "lumo_host/connection.h"
#include "testing/temporary_directory.h"

namespace lumo {
namespace {

/// The members of a connection to a server that is not there.
class ConnectionMembersTest : public testing::Test {
protected:
    void Query() {
        mConnection->Query("Immobilizer", "fields=5", [](const service_access::QueryResult&) {});
    }

    static service_access::ClientConfig Config(const std::string& socketPath) {
        service_access::ClientConfig config;
        config.socketPath = socketPath;
        return config;
    }

    testing_support::TemporaryDirectory mDirectory;
    std::shared_ptr<service_access::Connection> mConnection =
        std::make_shared<service_access::Connection>(Config(mDirectory.File("nobody.sock")));
    ConnectionMembers mMembers = lumo_host::MakeConnectionMembers(mConnection);
};

TEST_F(ConnectionMembersTest, TheConnectionClosesWithItsLastUser) {
    auto& factory = *mMembers.websocketManagerFactory;
    factory.addManager("Immobilizer");
    factory.addManager("ClampControl");
    factory.stopManager("Immobilizer");
    factory.stopManager("Immobilizer");
    factory.stopManager("Other");
    EXPECT_NO_THROW(Query());
    factory.stopManager("ClampControl");
    EXPECT_THROW(Query(), std::runtime_error);
}

/// Stands in for the class of a service.
struct SomeService {
    explicit SomeService(const std::shared_ptr<LumoAccessor>& /*accessor*/) {}
    static std::string getServiceName() { return "Some"; }
};

TEST_F(ConnectionMembersTest, NoListenerIsAdmittedAfterTheStop) {
    const ServiceListener<SomeService> listener{[](const auto&) {}, [] {}, [](const auto&) {}};
    EXPECT_NO_THROW(mMembers.serviceRegistry->registerServiceListener(listener));
    mMembers.eventManager->stop();
    EXPECT_THROW(mMembers.serviceRegistry->registerServiceListener(listener), std::runtime_error);
}

}  // namespace
}  // namespace lumo
