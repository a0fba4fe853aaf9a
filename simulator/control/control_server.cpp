#include "simulator/control/control_server.h"

#include <filesystem>
#include <utility>

namespace simulator {

namespace {

constexpr std::size_t kMaxClients = 8;

std::string WithParents(const std::string& path) {
    const auto parent = std::filesystem::path(path).parent_path();
    if (!parent.empty()) {
        std::filesystem::create_directories(parent);
    }
    return path;
}

}  // namespace

ControlServer::ControlServer(const std::string& path, Execute execute)
    : mExecute(std::move(execute)),
      mServer(
          WithParents(path), kMaxClients,
          [this](ConnectionId id, const auto& data) { return Take(id, data); },
          [this](ConnectionId id) { mClients.erase(id); }) {
    mServer.Start();
}

bool ControlServer::Take(ConnectionId id, const std::vector<std::uint8_t>& data) {
    posix::LineSplitter& lines = mClients.try_emplace(id, kMaxCommandSize).first->second;
    lines.Feed(std::string(data.begin(), data.end()));
    while (const auto line = lines.Next()) {
        if (!line->whole) {
            return false;
        }
        std::string answer = mExecute(std::string(line->text));
        if (answer.empty()) {
            continue;
        }
        answer.push_back('\n');
        if (!mServer.Send(id, {answer.begin(), answer.end()})) {
            return false;
        }
    }
    return !lines.IsTooLong();
}

}  // namespace simulator
