#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>

#include "simulator/vehicle/command_interpreter.h"
#include "testing/child_program.h"
#include "testing/stream.h"
#include "testing/temporary_directory.h"
#include "testing/waiting.h"
#include "zem_connector_host/connector_file.h"

namespace {

using simulator::vehicle::Options;
using testing::HasSubstr;
using testing::StartsWith;
using testing_support::ChildProgram;
using testing_support::Stream;

Options OptionsFor(std::vector<const char*> arguments) {
    arguments.insert(arguments.begin(), "vintrel-vehicle");
    CLI::App app;
    const auto options = simulator::vehicle::AddOptions(app);
    app.parse(static_cast<int>(arguments.size()), arguments.data());
    return options();
}

TEST(VehicleOptions, PathsStandBelowTheRootUnlessTheyAreGiven) {
    const Options options = OptionsFor({"--root", "/unit/a", "--connector-file", "/b/c.json"});
    EXPECT_EQ(options.clientConfigPath, "/unit/a/var/run/qel/config/wexa-client/ClientConfig.json");
    EXPECT_EQ(options.connectorPath, "/b/c.json");
    EXPECT_EQ(options.serviceSocketPathInUnit, options.serviceSocketPath);
    EXPECT_EQ(OptionsFor({"--root", "/unit/a", "--root-in-unit"}).serviceSocketPathInUnit,
              "/var/run/qel/wexa-client/services.sock");
    EXPECT_EQ(OptionsFor({}).deploymentPath, "/var/run/qel/config/someip/Deployment.json");
    EXPECT_EQ(OptionsFor({"--connection", "ondemand"}).connection,
              simulator::vehicle::ConnectionState::kOnDemand);
}

TEST(VehicleOptions, TheSocketsToTheBackendAreMadeAsTheOptionsSay) {
    const auto sockets = OptionsFor({"--tls-anchors", "/etc/roots.pem", "--tls-name", "backend",
                                     "--proxy", "socks5://proxy:1080"})
                             .backendSockets;
    ASSERT_TRUE(sockets.tls && sockets.proxy);
    EXPECT_EQ(sockets.tls->trustAnchors, "/etc/roots.pem");
    EXPECT_EQ(sockets.tls->serverName, "backend");
    EXPECT_EQ(sockets.proxy->type, zem_connector::host::ProxyType::kSocks5);
    EXPECT_EQ(sockets.proxy->host, "proxy");
    EXPECT_EQ(sockets.proxy->port, 1080);
    EXPECT_FALSE(OptionsFor({}).backendSockets.tls);
    for (const char* const wrong : {"proxy:1080", "ftp://proxy:1", "http://proxy:65536"}) {
        EXPECT_THROW(OptionsFor({"--proxy", wrong}), std::runtime_error) << wrong;
    }
    EXPECT_THROW(OptionsFor({"--tls-name", "backend"}), std::runtime_error);
}

class VehicleCommandTest : public testing::Test {
protected:
    std::string Execute(const std::string& line) { return mInterpreter.Execute(line); }

    zem_connector::host::ConnectorFile Connector() const {
        zem_connector::host::ConnectorFile file;
        std::vector<std::string> warnings;
        zem_connector::host::ParseConnectorFile(testing_support::ReadFile(mOptions.connectorPath),
                                                file, warnings);
        EXPECT_TRUE(warnings.empty());
        return file;
    }

    testing_support::TemporaryDirectory mDirectory;
    const Options mOptions{OptionsFor({"--root", mDirectory.Path().c_str()})};
    simulator::vehicle::Vehicle mVehicle{mOptions};
    int mQuits{0};
    simulator::vehicle::CommandInterpreter mInterpreter{mVehicle, [this] { ++mQuits; }};
};

TEST_F(VehicleCommandTest, ConnectorCommandsReachTheConnectorsFile) {
    using simulator::vehicle::ConnectionState;
    using zem_connector::SessionStatus;
    const std::string type = "QUBA-GenerateTIVCert-C003";
    EXPECT_EQ(Connector().sessionStatus, SessionStatus::kStarted);
    EXPECT_TRUE(Connector().transactionTypes.at(type).activated);
    EXPECT_EQ(Connector().transactionTypes.at(type).connectionState, ConnectionState::kConnected);

    EXPECT_EQ(Execute("connector session rejected"), "ok");
    EXPECT_EQ(Execute("connector activation off"), "ok");
    EXPECT_EQ(Execute("connector connection notAvailable"), "ok");
    EXPECT_EQ(Execute("connector url https://host:1/p?q=1\r"), "ok");
    const auto file = Connector();
    EXPECT_EQ(file.sessionStatus, SessionStatus::kRejected);
    EXPECT_FALSE(file.transactionTypes.at(type).activated);
    EXPECT_EQ(file.transactionTypes.at(type).connectionState, ConnectionState::kNotAvailable);
    EXPECT_EQ(file.invocationUrls.at(type + ".COSendCSR"), "https://host:1/p?q=1");

    std::filesystem::remove_all(std::filesystem::path(mOptions.connectorPath).parent_path());
    EXPECT_THAT(Execute("connector session started"), StartsWith("error: "));
    EXPECT_THAT(Execute("status"), HasSubstr(R"("session":"rejected")"));
}

TEST_F(VehicleCommandTest, ImmobilizerCommandsReachTheService) {
    const auto answer = [this] {
        return Stream::ToPath(mOptions.serviceSocketPath)
            .Send("GET /services/Immobilizer/info?fields=5 HTTP/1.1\r\nHost: x\r\n\r\n")
            .ReadToEnd();
    };
    EXPECT_THAT(answer(), HasSubstr(mOptions.vin));
    EXPECT_EQ(Execute("immobilizer vin VIN-B"), "ok");
    EXPECT_THAT(answer(), HasSubstr("VIN-B"));
    EXPECT_EQ(Execute("immobilizer down"), "ok");
    EXPECT_THAT(answer(), StartsWith("HTTP/1.1 503"));
}

TEST_F(VehicleCommandTest, StatusTellsWhatTheCommandsHaveSet) {
    for (const char* command : {"clamp on", "immobilizer down", "immobilizer vin  A B ",
                                "ecu sw 1.2", "ecu hw", "ecu part P 1", "ecu down"}) {
        EXPECT_EQ(Execute(command), "ok") << command;
    }
    const std::string answer = Execute("status");
    ASSERT_THAT(answer, StartsWith("ok {"));
    const auto status = nlohmann::json::parse(answer.substr(3));
    EXPECT_EQ(status["clamp"], "on");
    EXPECT_EQ(status["immobilizer"], "down");
    EXPECT_EQ(status["vin"], "A B");
    EXPECT_EQ(status["ecu"]["service"], "down");
    EXPECT_EQ(status["ecu"]["sw"], "1.2");
    EXPECT_EQ(status["ecu"]["hw"], "");
    EXPECT_EQ(status["ecu"]["part"], "P 1");
    EXPECT_EQ(mQuits, 0);
    EXPECT_EQ(Execute("quit"), "ok");
    EXPECT_EQ(mQuits, 1);
}

TEST_F(VehicleCommandTest, WrongCommandsChangeNothingAndSayWhy) {
    const std::string before = Execute("status");
    const std::pair<const char*, const char*> kWrong[] = {
        {"klamp on", "unknown command 'klamp'"},
        {"clamp", "on or off is missing"},
        {"clamp onn", "'onn' is neither on nor off"},
        {"clamp on off", "too much: 'off'"},
        {"immobilizer up down", "too much: 'down'"},
        {"connector session begun", "'begun' is none of"},
        {"connector connection", "the connection state is missing"},
        {"connector url a b", "too much: 'b'"},
        {"ecu up 1", "too much: '1'"},
        {"alert oid 256", "no number from 0 to 255"},
        {"alert oid -1", "no number from 0 to 255"},
        {"alert oid 44", "no subscriber took the alert"},
        {"quit now", "too much: 'now'"},
    };
    for (const auto& [command, reason] : kWrong) {
        const std::string answer = Execute(command);
        EXPECT_THAT(answer, StartsWith("error: ")) << command;
        EXPECT_THAT(answer, HasSubstr(reason)) << command;
    }
    EXPECT_THAT(Execute("ecu sw " + std::string(70000, 'x')), StartsWith("error: "));
    EXPECT_EQ(Execute("   "), "");
    EXPECT_EQ(Execute("status"), before);
    EXPECT_EQ(mQuits, 0);
}

class VehicleProgramTest : public testing::Test {
protected:
    std::vector<std::string> WithRoot(std::vector<std::string> more = {}) const {
        more.insert(more.begin(), {"--root", mDirectory.Path().string()});
        return more;
    }

    std::size_t Sockets() const {
        std::size_t count = 0;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(mDirectory.Path())) {
            count += entry.is_socket() ? 1U : 0U;
        }
        return count;
    }

    Stream ConnectControl() const {
        const std::string path = OptionsFor({"--root", mDirectory.Path().c_str()}).controlPath;
        struct stat info {};
        EXPECT_EQ(::stat(path.c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 0777U, 0600U);
        return Stream::ToPath(path);
    }

    testing_support::TemporaryDirectory mDirectory;
};

TEST_F(VehicleProgramTest, EndsOrderlyOnEachOfItsEnds) {
    const std::function<void(ChildProgram&)> ends[] = {
        [](ChildProgram& program) {
            program.Write("quit\n");
            EXPECT_EQ(program.ReadLine(), "ok");
        },
        [this](ChildProgram&) { EXPECT_EQ(ConnectControl().Send("quit\n").ReadLine(), "ok"); },
        [](ChildProgram& program) {
            program.Write("clamp on");
            program.CloseInput();
            EXPECT_EQ(program.ReadLine(), "ok");
        },
        [](ChildProgram& program) {
            program.Write("clamp on\n" + std::string(4097, 'x'));
            EXPECT_EQ(program.ReadLine(), "ok");
            EXPECT_EQ(program.ReadLine(), "error: line too long");
        },
        [](ChildProgram& program) { program.Kill(SIGTERM); },
        [](ChildProgram& program) { program.Kill(SIGINT); }};
    for (const auto& end : ends) {
        ChildProgram program(WithRoot({"--stdin"}));
        ASSERT_EQ(program.ReadLine(), "ready");
        EXPECT_EQ(Sockets(), 3U);
        end(program);
        EXPECT_EQ(program.Wait(), 0);
        EXPECT_EQ(Sockets(), 0U);
    }
}

TEST_F(VehicleProgramTest, ServesSeveralControlClientsAndOutlivesItsInput) {
    const std::string readyFile = mDirectory.File("ready");
    ChildProgram program(WithRoot({"--ready-file", readyFile}));
    program.CloseInput();
    EXPECT_TRUE(testing_support::WaitUntil([&] { return std::filesystem::exists(readyFile); }));
    const Stream first = ConnectControl();
    const Stream second = ConnectControl();
    EXPECT_EQ(first.Send("clamp on\n").ReadLine(), "ok");
    EXPECT_THAT(second.Send("\n\nstatus\n").ReadLine(), HasSubstr(R"("clamp":"on")"));
    EXPECT_THAT(first.Send(std::string(4096, 'x') + "\n").ReadLine(),
                StartsWith("error: unknown command"));
    EXPECT_EQ(first.Send(std::string(4097, 'x') + "\nclamp off\n").ReadLine(), "<end>");
    EXPECT_EQ(second.Send(std::string(4097, 'x')).ReadLine(), "<end>");
    program.Kill(SIGTERM);
    EXPECT_EQ(program.Wait(), 0);
    EXPECT_FALSE(std::filesystem::exists(readyFile));
}

TEST_F(VehicleProgramTest, RefusesAnUnknownOptionAndASecondVehicle) {
    ChildProgram wrong({"--klamp"});
    EXPECT_GT(wrong.Wait(), 0);
    ChildProgram first(WithRoot());
    ASSERT_EQ(first.ReadLine(), "ready");
    ChildProgram second(WithRoot());
    EXPECT_EQ(second.Wait(), 1);
    first.Write("status\n");
    EXPECT_THAT(first.ReadLine(), StartsWith("ok {"));
}

}  // namespace
