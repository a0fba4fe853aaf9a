#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <ara/stm/component_client.h>
#include <vonta_socket/unix_stream_client_connector.h>

#include "testing/environment.h"
#include "testing/temporary_directory.h"

namespace {

using ara::stm::ComponentClient;

/// A state manager that is connected to the component "unit".
class StateManager {
public:
    explicit StateManager(const std::string& path)
        : mConnection(vonta_socket::UnixStreamClientConnector(path, 30000, "").Connect()) {}

    bool IsConnected() const { return mConnection != nullptr; }

    void Send(const std::string& text) { mConnection->Write({text.begin(), text.end()}); }

    /// The next line without its end, or what has come before the connection ended.
    std::string ReadLine() {
        std::string line;
        std::vector<std::uint8_t> byte(1);
        while (mConnection->Read(byte) && byte.front() != '\n') {
            line.push_back(static_cast<char>(byte.front()));
        }
        return line;
    }

private:
    std::shared_ptr<vonta_socket::StreamCommunicatorIf> mConnection;
};

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
    StateManager first(mDirectory.File("unit.sock"));
    StateManager second(mDirectory.File("unit.sock"));
    ASSERT_TRUE(first.IsConnected() && second.IsConnected());
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
        StateManager manager(mDirectory.File("unit.sock"));
        ASSERT_TRUE(manager.IsConnected());
        manager.Send(request);
        EXPECT_EQ(manager.ReadLine(), "ERROR malformed request") << request;
        EXPECT_EQ(manager.ReadLine(), "") << request;
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
