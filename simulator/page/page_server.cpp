#include "simulator/page/page_server.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <system_error>
#include <utility>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/address_v4.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>

#include "simulator/page/session.h"

namespace simulator::page {

namespace {

namespace asio = boost::asio;
using asio::ip::tcp;

constexpr std::size_t kMaxConnections = 64;
constexpr std::chrono::milliseconds kTick(200);

}  // namespace

class PageServer::Impl {
public:
    Impl(std::uint16_t port, std::vector<UnitSettings> units, bool startsServices)
        : mAcceptor(mLoop), mSignals(mLoop), mTimer(mLoop) {
        try {
            const tcp::endpoint endpoint(asio::ip::address_v4::loopback(), port);
            mAcceptor.open(endpoint.protocol());
            mAcceptor.set_option(tcp::acceptor::reuse_address(true));
            mAcceptor.bind(endpoint);
            mAcceptor.listen();
        } catch (const boost::system::system_error& error) {
            throw std::system_error(error.code().value(), std::generic_category(),
                                    "cannot listen on port " + std::to_string(port));
        }
        mContext = std::make_unique<SessionContext>(mAcceptor.local_endpoint().port());
        for (UnitSettings& settings : units) {
            mContext->units.push_back(std::make_unique<Unit>(mLoop, std::move(settings)));
            mContext->units.back()->Start(startsServices);
        }
        Accept();
        Tick();
    }

    ~Impl() { mContext->units.clear(); }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    std::string Address() const { return mContext->access.Address(); }

    void StopOnSignals() {
        mSignals.add(SIGTERM);
        mSignals.add(SIGINT);
        mSignals.async_wait([this](const boost::system::error_code& error, int /*number*/) {
            if (!error) {
                StopNow();
            }
        });
    }

    void Run() { mLoop.run(); }
    void Stop() {
        asio::post(mLoop, [this] { StopNow(); });
    }

private:
    void Accept() {
        mAcceptor.async_accept([this](const boost::system::error_code& error, tcp::socket socket) {
            if (mStopping) {
                return;
            }
            // What finds no room is closed at once.
            if (!error && mContext->connections < kMaxConnections) {
                ServeSession(std::move(socket), *mContext);
            }
            // Without descriptors the next call would fail at once, again and again.
            if (error && error != boost::system::errc::connection_aborted) {
                mAcceptsLater = true;
                return;
            }
            Accept();
        });
    }

    /// Tells the watchers of every unit how the units stand, once that has changed.
    void Tick() {
        if (std::exchange(mAcceptsLater, false)) {
            Accept();
        }
        const bool isRunning = std::any_of(mContext->units.begin(), mContext->units.end(),
                                           [](const auto& unit) { return unit->IsRunning(); });
        if (mStopping && !isRunning) {
            mLoop.stop();
            return;
        }
        nlohmann::json overview = Overview(*mContext);
        if (overview != mOverview) {
            mOverview = std::move(overview);
            for (const auto& unit : mContext->units) {
                unit->Publish({{"units", mOverview}});
            }
        }
        mTimer.expires_after(kTick);
        mTimer.async_wait([this](const boost::system::error_code& error) {
            if (!error) {
                Tick();
            }
        });
    }

    void StopNow() {
        if (std::exchange(mStopping, true)) {
            return;
        }
        boost::system::error_code ignored;
        mAcceptor.close(ignored);
        for (const auto& unit : mContext->units) {
            unit->Stop();
        }
    }

    /// Outlives the sessions that end with the loop.
    std::unique_ptr<SessionContext> mContext;
    asio::io_context mLoop;
    tcp::acceptor mAcceptor;
    asio::signal_set mSignals;
    asio::steady_timer mTimer;
    nlohmann::json mOverview;
    bool mAcceptsLater{false};
    bool mStopping{false};
};

PageServer::PageServer(std::uint16_t port, std::vector<UnitSettings> units, bool startsServices)
    : mImpl(std::make_unique<Impl>(port, std::move(units), startsServices)) {}

PageServer::~PageServer() = default;

std::string PageServer::Address() const {
    return mImpl->Address();
}

void PageServer::StopOnSignals() {
    mImpl->StopOnSignals();
}

void PageServer::Run() {
    mImpl->Run();
}

void PageServer::Stop() {
    mImpl->Stop();
}

}  // namespace simulator::page
