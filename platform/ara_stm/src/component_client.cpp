#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include <ara/stm/component_client.h>

#include "vonta_socket_host/unix_server.h"

namespace ara::stm {

namespace {

using vonta_socket::host::UnixServer;

constexpr const char* kDefaultDirectory = "/var/run/qel/stm";
constexpr const char* kRequestPrefix = "REQUEST ";
constexpr std::size_t kMaxConnections = 8;
constexpr std::size_t kMaxLineLength = 128;
constexpr std::size_t kMaxStateLength = 64;

struct StateRequest {
    unsigned int sequence = 0;
    std::string state;
};

std::optional<StateRequest> ParseRequest(const std::string& line) {
    const std::string prefix = kRequestPrefix;
    if (line.compare(0, prefix.size(), prefix) != 0) {
        return std::nullopt;
    }
    StateRequest request;
    const char* end = line.data() + line.size();
    const auto [next, error] = std::from_chars(line.data() + prefix.size(), end, request.sequence);
    if (error != std::errc() || next == end || *next != ' ') {
        return std::nullopt;
    }
    request.state.assign(next + 1, end);
    const bool printable = std::all_of(request.state.begin(), request.state.end(),
                                       [](char c) { return c > ' ' && c <= '~'; });
    if (request.state.empty() || request.state.size() > kMaxStateLength || !printable) {
        return std::nullopt;
    }
    return request;
}

std::vector<std::uint8_t> ToBytes(const std::string& text) {
    return {text.begin(), text.end()};
}

class SocketComponentClient : public ComponentClient {
public:
    explicit SocketComponentClient(StateRequestHandler handler) : mHandler(std::move(handler)) {}

    ~SocketComponentClient() override {
        if (mServer) {
            mServer->Stop();
        }
    }

    SocketComponentClient(const SocketComponentClient&) = delete;
    SocketComponentClient& operator=(const SocketComponentClient&) = delete;

    void Serve(const std::string& path) {
        mServer = std::make_unique<UnixServer>(
            path, kMaxConnections,
            [this](UnixServer::ConnectionId id, const std::vector<std::uint8_t>& data) {
                return HandleData(id, data);
            },
            [this](UnixServer::ConnectionId id) { mInput.erase(id); });
        mServer->Start();
    }

    void confirmStateChange(unsigned int sequence, const std::string& state,
                            unsigned int code) const override {
        if (mServer) {
            mServer->SendToAll(ToBytes("STATE " + std::to_string(sequence) + " " + state + " " +
                                       std::to_string(code) + "\n"));
        }
    }

private:
    bool HandleData(UnixServer::ConnectionId id, const std::vector<std::uint8_t>& data) {
        std::string& input = mInput[id];
        input.append(data.begin(), data.end());
        for (auto end = input.find('\n'); end != std::string::npos; end = input.find('\n')) {
            const std::string line = input.substr(0, end);
            input.erase(0, end + 1);
            if (!HandleLine(line)) {
                return Refuse(id);
            }
        }
        return input.size() <= kMaxLineLength || Refuse(id);
    }

    bool HandleLine(const std::string& line) {
        const std::optional<StateRequest> request = ParseRequest(line);
        if (line.size() > kMaxLineLength || !request) {
            return false;
        }
        mHandler(*this, request->sequence, request->state);
        return true;
    }

    bool Refuse(UnixServer::ConnectionId id) {
        mServer->Send(id, ToBytes("ERROR malformed request\n"));
        return false;
    }

    StateRequestHandler mHandler;
    std::map<UnixServer::ConnectionId, std::string> mInput;  ///< of the server's thread
    std::unique_ptr<UnixServer> mServer;
};

}  // namespace

std::unique_ptr<ComponentClient> createComponentClient(const std::string& component,
                                                       StateRequestHandler handler) {
    if (component.empty() || component.find('/') != std::string::npos) {
        throw std::runtime_error("'" + component + "' is no component name");
    }
    const char* setting = std::getenv("ARA_STM_DIR");
    const std::string directory = setting != nullptr ? setting : kDefaultDirectory;
    auto client = std::make_unique<SocketComponentClient>(std::move(handler));
    std::error_code error;
    if (std::filesystem::exists(directory, error)) {
        client->Serve(directory + "/" + component + ".sock");
    }
    return client;
}

}  // namespace ara::stm
