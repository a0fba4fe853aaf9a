#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "client/clamp_control_cb_if.h"
#include "client/clamp_control_if.h"
#include "client/ecu_capabilities_if.h"
#include "client/immobilizer_cb_if.h"
#include "client/immobilizer_if.h"
#include "client/tls_alerts_cb_if.h"
#include "client/tls_alerts_if.h"
#include "simulator/vehicle/command_interpreter.h"
#include "testing/captured_log.h"
#include "testing/temporary_directory.h"
#include "zem_connector_host/connector_file.h"

extern char** environ;

namespace {

using namespace std::chrono_literals;
using simulator::vehicle::CommandInterpreter;
using simulator::vehicle::Options;
using simulator::vehicle::ParseCommandLine;
using simulator::vehicle::Vehicle;
using testing::HasSubstr;
using testing::StartsWith;

constexpr auto kGuard = 30s;

std::string ReadFile(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

Options OptionsFor(std::vector<const char*> arguments) {
    arguments.insert(arguments.begin(), "vintrel-vehicle");
    int exitStatus = 0;
    const auto options =
        ParseCommandLine(static_cast<int>(arguments.size()), arguments.data(), exitStatus);
    if (!options) {
        throw std::runtime_error("options refused");
    }
    return *options;
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
        zem_connector::host::ParseConnectorFile(ReadFile(mOptions.connectorPath), file, warnings);
        EXPECT_TRUE(warnings.empty());
        return file;
    }

    testing_support::TemporaryDirectory mDirectory;
    const Options mOptions{OptionsFor({"--root", mDirectory.Path().c_str()})};
    Vehicle mVehicle{mOptions};
    int mQuits{0};
    CommandInterpreter mInterpreter{mVehicle, [this] { ++mQuits; }};
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

/// The running program, with pipes to its standard input and output.
class Program {
public:
    explicit Program(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), SIMULATOR_PROGRAM);
        int input[2];
        int output[2];
        if (::pipe2(input, O_CLOEXEC) != 0 || ::pipe2(output, O_CLOEXEC) != 0) {
            throw std::runtime_error("no pipe");
        }
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
        std::vector<char*> argv;
        argv.reserve(arguments.size() + 1);
        for (std::string& argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        const int error =
            ::posix_spawn(&mPid, SIMULATOR_PROGRAM, &actions, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        ::close(input[0]);
        ::close(output[1]);
        mInput = input[1];
        mOutput = output[0];
        if (error != 0) {
            throw std::runtime_error("no program");
        }
    }

    ~Program() {
        CloseInput();
        ::close(mOutput);
        if (mPid > 0) {
            ::kill(mPid, SIGKILL);
            ::waitpid(mPid, nullptr, 0);
        }
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    void Write(const std::string& text) const {
        EXPECT_EQ(::write(mInput, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }

    void CloseInput() {
        if (mInput >= 0) {
            ::close(mInput);
            mInput = -1;
        }
    }

    std::string ReadLine() const { return ReadLineFrom(mOutput); }

    static std::string ReadLineFrom(int fd) {
        std::string line;
        while (line.empty() || line.back() != '\n') {
            pollfd ready{fd, POLLIN, 0};
            char c = 0;
            if (::poll(&ready, 1, static_cast<int>(std::chrono::milliseconds(kGuard).count())) !=
                    1 ||
                ::read(fd, &c, 1) != 1) {
                return line + "<end>";
            }
            line.push_back(c);
        }
        line.pop_back();
        return line;
    }

    void Kill(int signal) const { ::kill(mPid, signal); }

    /// The exit status, or -1 if it did not exit by itself.
    int Wait() {
        // The end of its output comes before its exit, and can be waited for with a limit.
        while (ReadLine().find("<end>") == std::string::npos) {
        }
        int status = 0;
        if (::waitpid(mPid, &status, 0) != mPid) {
            return -1;
        }
        mPid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    pid_t mPid{-1};
    int mInput{-1};
    int mOutput{-1};
};

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

    int ConnectControl() const {
        const std::string path = OptionsFor({"--root", mDirectory.Path().c_str()}).controlPath;
        struct stat info {};
        EXPECT_EQ(::stat(path.c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 0777U, 0600U);
        const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof(address.sun_path) - 1);
        EXPECT_EQ(::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
        return fd;
    }

    static std::string Ask(int fd, const std::string& lines) {
        EXPECT_EQ(::send(fd, lines.data(), lines.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(lines.size()));
        return Program::ReadLineFrom(fd);
    }

    testing_support::TemporaryDirectory mDirectory;
};

TEST_F(VehicleProgramTest, EndsOrderlyOnEachOfItsEnds) {
    enum class End { kQuit, kControlQuit, kEndOfInput, kTerminate, kInterrupt };
    for (const End end :
         {End::kQuit, End::kControlQuit, End::kEndOfInput, End::kTerminate, End::kInterrupt}) {
        Program program(WithRoot({"--stdin"}));
        ASSERT_EQ(program.ReadLine(), "ready");
        EXPECT_EQ(Sockets(), 3U);
        switch (end) {
            case End::kQuit:
                program.Write("quit\n");
                EXPECT_EQ(program.ReadLine(), "ok");
                break;
            case End::kControlQuit: {
                const int control = ConnectControl();
                EXPECT_EQ(Ask(control, "quit\n"), "ok");
                ::close(control);
                break;
            }
            case End::kEndOfInput:
                program.Write("clamp on");
                program.CloseInput();
                EXPECT_EQ(program.ReadLine(), "ok");
                break;
            case End::kTerminate:
                program.Kill(SIGTERM);
                break;
            case End::kInterrupt:
                program.Kill(SIGINT);
                break;
        }
        EXPECT_EQ(program.Wait(), 0);
        EXPECT_EQ(Sockets(), 0U);
    }
}

TEST_F(VehicleProgramTest, ServesSeveralControlClientsAndOutlivesItsInput) {
    const std::string readyFile = mDirectory.File("ready");
    Program program(WithRoot({"--ready-file", readyFile}));
    program.CloseInput();
    const auto end = std::chrono::steady_clock::now() + kGuard;
    while (!std::filesystem::exists(readyFile) && std::chrono::steady_clock::now() < end) {
        std::this_thread::yield();
    }
    const int first = ConnectControl();
    const int second = ConnectControl();
    EXPECT_EQ(Ask(first, "clamp on\n"), "ok");
    EXPECT_THAT(Ask(second, "\n\nstatus\n"), HasSubstr(R"("clamp":"on")"));
    ::close(second);
    ::close(first);
    program.Kill(SIGTERM);
    EXPECT_EQ(program.Wait(), 0);
    EXPECT_FALSE(std::filesystem::exists(readyFile));
}

TEST_F(VehicleProgramTest, RefusesAnUnknownOptionAndASecondVehicle) {
    Program wrong({"--klamp"});
    EXPECT_GT(wrong.Wait(), 0);
    Program first(WithRoot());
    ASSERT_EQ(first.ReadLine(), "ready");
    Program second(WithRoot());
    EXPECT_EQ(second.Wait(), 1);
    first.Write("status\n");
    EXPECT_THAT(first.ReadLine(), StartsWith("ok {"));
}

/// What a unit's vehicle inputs hear.
class Listener : public vintrel::ClampControlCbIf,
                 public vintrel::ImmobilizerCbIf,
                 public vintrel::TlsAlertsCbIf {
public:
    void ClampStateChangeCb(bool on) override { Note(on ? "clamp on" : "clamp off"); }
    void ImmobilizerVinReceivedCb(std::string vin) override { Note("vin " + vin); }
    void ImmobilizerConnectionStateChangeCb(bool connected) override {
        Note(connected ? "immobilizer up" : "immobilizer down");
    }
    void TlsAlertNotifyCb(std::string oid, tls_alert_if::ETlsAlertCode code) override {
        Note("alert " + oid + " " + std::to_string(static_cast<int>(code)));
    }

    bool Await(const std::string& what) {
        std::unique_lock<std::mutex> lock(mMutex);
        return mChanged.wait_for(lock, kGuard, [&] {
            return std::find(mHeard.begin(), mHeard.end(), what) != mHeard.end();
        });
    }

private:
    void Note(const std::string& what) {
        const std::lock_guard<std::mutex> lock(mMutex);
        mHeard.push_back(what);
        mChanged.notify_all();
    }

    std::mutex mMutex;
    std::condition_variable mChanged;
    std::vector<std::string> mHeard;
};

TEST_F(VehicleProgramTest, UnitHearsAllThatTheVehicleSays) {
    const Options options = OptionsFor({"--root", mDirectory.Path().c_str()});
    ::setenv("WEXA_CLIENT_CONFIG", options.clientConfigPath.c_str(), 1);
    ::setenv("SOMEIP_DEPLOYMENT", options.deploymentPath.c_str(), 1);
    ::setenv("VONTA_SOCKET_DIR",
             std::filesystem::path(options.alertSocketPath).parent_path().c_str(), 1);
    testing_support::CapturedLog log;
    Program program(WithRoot({"--vin", "VIN-A", "--ecu-sw", "SW-A"}));
    ASSERT_EQ(program.ReadLine(), "ready");

    Listener listener;
    const auto clamp = vintrel::ClampControlIf::Create(listener);
    const auto immobilizer = vintrel::ImmobilizerIf::Create(listener);
    const auto alerts = vintrel::TlsAlertsIf::Create();
    const auto ecu = vintrel::EcuCapabilitiesIf::Create();
    ecu->Initialize();
    alerts->Start(&listener);
    EXPECT_TRUE(clamp->Subscribe());
    EXPECT_TRUE(immobilizer->ImmobilizerInit());
    EXPECT_TRUE(listener.Await("clamp off"));
    program.Write("clamp on\n");
    EXPECT_TRUE(listener.Await("clamp on"));
    EXPECT_TRUE(listener.Await("immobilizer up"));
    EXPECT_TRUE(immobilizer->GetVin());
    EXPECT_TRUE(listener.Await("vin VIN-A"));
    program.Write("immobilizer vin VIN-B\n");
    EXPECT_EQ(program.ReadLine(), "ok");
    EXPECT_EQ(program.ReadLine(), "ok");
    EXPECT_TRUE(immobilizer->GetVin());
    EXPECT_TRUE(listener.Await("vin VIN-B"));
    std::string answer;
    do {
        program.Write("alert some.oid 44\n");
        answer = program.ReadLine();
    } while (answer == "error: no subscriber took the alert");
    EXPECT_EQ(answer, "ok");
    EXPECT_TRUE(listener.Await("alert some.oid 44"));
    EXPECT_TRUE(log.WaitFor("Received swVersion: 'SW-A' stored"));
    program.Write("ecu sw SW-B\n");
    EXPECT_TRUE(log.WaitFor("Received swVersion: 'SW-B' stored"));
    EXPECT_EQ(ecu->GetEcuCapabilities().softwareVersion, "SW-B");
    program.Write("quit\n");
    EXPECT_EQ(program.Wait(), 0);
    EXPECT_TRUE(log.WaitFor("DiagnosticInfoServices service stopped"));
    EXPECT_TRUE(listener.Await("immobilizer down"));
    alerts->Stop();
}

}  // namespace
