#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <ara/stm/component_client.h>

#include "testing/environment.h"
#include "testing/stream.h"
#include "testing/temporary_directory.h"

namespace {

using ara::stm::ComponentClient;
using testing_support::Stream;

class ComponentClientTest : public ::testing::Test {
protected:
    static std::unique_ptr<ComponentClient> CreateConfirmingClient() {
        return ara::stm::createComponentClient(
            "unit",
            [](const ComponentClient& client, unsigned int sequence, const std::string& state) {
                client.confirmStateChange(sequence, state, 0);
            });
    }

    testing_support::TemporaryDirectory mDirectory;
    const testing_support::EnvironmentVariable mVariable{"ARA_STM_DIR", mDirectory.Path()};
};

TEST_F(ComponentClientTest, RequestsReachTheHandlerAndConfirmationsReachEveryManager) {
    const auto client = CreateConfirmingClient();
    const Stream first = Stream::ToPath(mDirectory.File("unit.sock"));
    const Stream second = Stream::ToPath(mDirectory.File("unit.sock"));
    second.Send("REQUEST 1 kOn\n");
    ASSERT_EQ(second.ReadLine(), "STATE 1 kOn 0");

    first.Send("REQUEST 42");
    first.Send("94967295 kPrepSD\nREQUEST 7 kOn\n");

    EXPECT_EQ(second.ReadLine(), "STATE 4294967295 kPrepSD 0");
    EXPECT_EQ(second.ReadLine(), "STATE 7 kOn 0");
}

TEST_F(ComponentClientTest, MalformedRequestsAreAnsweredAndEndTheConnection) {
    const auto client = CreateConfirmingClient();
    const std::vector<std::string> requests{"HELLO\n",
                                            "REQUEST \n",
                                            "REQUEST 1\n",
                                            "REQUEST -1 kOn\n",
                                            "REQUEST 4294967296 kOn\n",
                                            "REQUEST 1 k On\n",
                                            "REQUEST 1 " + std::string(65, 'x') + "\n",
                                            std::string(129, 'x')};
    for (const std::string& request : requests) {
        EXPECT_EQ(Stream::ToPath(mDirectory.File("unit.sock")).Send(request).ReadToEnd(),
                  "ERROR malformed request\n")
            << request;
    }
}

TEST_F(ComponentClientTest, OnlyAFreeAndValidNameCanBeAnnounced) {
    const auto client = CreateConfirmingClient();
    EXPECT_THROW(CreateConfirmingClient(), std::runtime_error);
    EXPECT_THROW(ara::stm::createComponentClient("../unit", nullptr), std::runtime_error);
    EXPECT_THROW(ara::stm::createComponentClient("", nullptr), std::runtime_error);
}

TEST_F(ComponentClientTest, WithoutStateManagementAClientConfirmsIntoTheVoid) {
    const testing_support::EnvironmentVariable variable("ARA_STM_DIR", mDirectory.File("absent"));
    const auto client = CreateConfirmingClient();
    EXPECT_NO_THROW(client->confirmStateChange(1, "kOn", 0));
}

}  // namespace
