#include "simulator/backend/server.h"

#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/address_v4.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>
#include <fcntl.h>

#include "simulator/backend/connection.h"

namespace simulator::backend {

namespace {

namespace asio = boost::asio;
using asio::ip::tcp;

constexpr std::size_t kMaxConnections = 64;
/// After a failed accept, e.g. for lack of descriptors.
constexpr std::chrono::milliseconds kAcceptPause(100);

template <typename Socket>
void SetCloseOnExec(Socket& socket) {
    if (::fcntl(socket.native_handle(), F_SETFD, FD_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "FD_CLOEXEC");
    }
}

}  // namespace

class Server::Impl {
public:
    Impl(const ServerSettings& settings, const EnrolmentService& service, Journal& journal,
         ScenarioSequence scenarios)
        : mConnections{service, journal, std::move(scenarios), settings.timeLimit},
          mAcceptor(mLoop),
          mSignals(mLoop),
          mPause(mLoop) {
        try {
            Listen({asio::ip::address_v4::loopback(), settings.port});
        } catch (const boost::system::system_error& error) {
            throw std::system_error(error.code().value(), std::generic_category(),
                                    "cannot listen on port " + std::to_string(settings.port));
        }
        Accept();
    }

    std::uint16_t Port() const { return mAcceptor.local_endpoint().port(); }

    void SetScenarios(ScenarioSequence scenarios) {
        asio::post(mLoop, [this, scenarios = std::move(scenarios)]() mutable {
            mConnections.scenarios = std::move(scenarios);
        });
    }

    void StopOnSignals() {
        mSignals.add(SIGTERM);
        mSignals.add(SIGINT);
        mSignals.async_wait([this](const boost::system::error_code& error, int /*number*/) {
            if (!error) {
                mLoop.stop();
            }
        });
    }

    void Run() { mLoop.run(); }
    void Stop() { mLoop.stop(); }

private:
    void Listen(const tcp::endpoint& endpoint) {
        mAcceptor.open(endpoint.protocol());
        SetCloseOnExec(mAcceptor);
        mAcceptor.set_option(tcp::acceptor::reuse_address(true));
        mAcceptor.bind(endpoint);
        mAcceptor.listen();
    }

    void Accept() {
        mAcceptor.async_accept([this](const boost::system::error_code& error, tcp::socket socket) {
            if (error) {
                AcceptLater();
                return;
            }
            SetCloseOnExec(socket);
            ++mCount;
            ServeConnection(std::move(socket), mConnections, [this] { OnConnectionEnd(); });
            if (mCount < kMaxConnections) {
                Accept();
            }
        });
    }

    void AcceptLater() {
        mPause.expires_after(kAcceptPause);
        mPause.async_wait([this](const boost::system::error_code& error) {
            if (!error) {
                Accept();
            }
        });
    }

    void OnConnectionEnd() {
        if (mCount-- == kMaxConnections) {
            Accept();
        }
    }

    ConnectionContext mConnections;
    std::size_t mCount = 0;
    asio::io_context mLoop;
    tcp::acceptor mAcceptor;
    asio::signal_set mSignals;
    asio::steady_timer mPause;
};

Server::Server(const ServerSettings& settings, const EnrolmentService& service, Journal& journal,
               ScenarioSequence scenarios)
    : mImpl(std::make_unique<Impl>(settings, service, journal, std::move(scenarios))) {}

Server::~Server() = default;

std::uint16_t Server::Port() const {
    return mImpl->Port();
}

void Server::SetScenarios(ScenarioSequence scenarios) {
    mImpl->SetScenarios(std::move(scenarios));
}

void Server::StopOnSignals() {
    mImpl->StopOnSignals();
}

void Server::Run() {
    mImpl->Run();
}

void Server::Stop() {
    mImpl->Stop();
}

}  // namespace simulator::backend
