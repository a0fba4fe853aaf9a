#include "client_node.h"

#include <algorithm>
#include <exception>
#include <utility>

#include <posix/path.h>

namespace someip {

namespace {

constexpr std::chrono::milliseconds kRetryInterval{500};

}  // namespace

ClientNode::Impl::Impl(boost::asio::io_context& context, std::string path)
    : mContext(context),
      mStrand(boost::asio::make_strand(context)),
      mTimer(mStrand),
      mPath(std::move(path)),
      mDrops(std::make_shared<DropLog>("of service discovery")),
      mRandom(std::random_device()()) {}

void ClientNode::Impl::Start() {
    WatchDirectory();
    mNetworkWatch = NetworkWatch::Open(mStrand, [weak = weak_from_this()] {
        if (const auto self = weak.lock()) {
            self->NetworkChanged();
        }
    });
    ReadFile();
}

void ClientNode::Impl::Close() {
    mClosed = true;
    for (const auto& service : std::exchange(mServices, {})) {
        service->Undeploy({});
    }
    CloseTransport();
    if (mWatch) {
        mWatch->Close();
    }
    if (mNetworkWatch) {
        mNetworkWatch->Close();
    }
    mTimer.cancel();
}

void ClientNode::Impl::Add(const std::shared_ptr<ClientService>& service) {
    mServices.push_back(service);
    ReadFile();
}

void ClientNode::Impl::Remove(const std::shared_ptr<ClientService>& service) {
    service->Undeploy({});
    mServices.erase(std::remove(mServices.begin(), mServices.end(), service), mServices.end());
}

void ClientNode::Impl::WatchDirectory() {
    mWatch = posix::DirectoryWatch::Open(
        mStrand, posix::DirectoryOf(mPath), {},
        [weak = weak_from_this()](const posix::DirectoryWatch::Report& report) {
            if (const auto self = weak.lock()) {
                self->DirectoryChanged(report);
            }
        });
    if (!mWatch) {
        mRetry = Clock::now() + kRetryInterval;
    }
}

void ClientNode::Impl::NetworkChanged() {
    if (mClosed || !mTransport || IsOnItsInterface()) {
        return;
    }
    CloseTransport();
    // Logs if the network is unavailable.
    mRetry = Clock::now();
    SetTimer();
}

bool ClientNode::Impl::IsOnItsInterface() const {
    try {
        return InterfaceOf(mDeployment->network) == mTransport->InterfaceIndex();
    } catch (const std::exception&) {
        return false;
    }
}

void ClientNode::Impl::DirectoryChanged(const posix::DirectoryWatch::Report& report) {
    if (mClosed) {
        return;
    }
    if (!report.watching) {
        mWatch.reset();
        mRetry = Clock::now() + kRetryInterval;
    }
    ReadFile();
    SetTimer();
}

void ClientNode::Impl::ReadFile() {
    if (mClosed) {
        return;
    }
    mIsStale = std::any_of(mServices.begin(), mServices.end(),
                           [](const auto& service) { return service->IsAvailable(); });
    std::optional<Deployment> deployment = mDeployment;
    if (!mIsStale) {
        try {
            deployment = ReadDeployment(mPath);
            mFileProblem.End();
        } catch (const std::exception& exception) {
            mFileProblem.Report(exception.what());
        }
    }
    if (deployment) {
        Apply(std::move(*deployment));
    }
}

void ClientNode::Impl::Apply(Deployment deployment) {
    if (mDeployment && !(mDeployment->network == deployment.network)) {
        CloseTransport();
    }
    mDeployment = std::move(deployment);
    if (!mTransport && !OpenTransport()) {
        mRetry = Clock::now() + kRetryInterval;
        return;
    }
    for (const auto& service : mServices) {
        const ServiceDeployment* const deployed =
            FindService(*mDeployment, service->Name(), service->Instance());
        if (deployed != nullptr) {
            service->Deploy(*deployed, mDeployment->network.timing, Clock::now());
        } else {
            service->Undeploy(service->Name() + " is not deployed");
        }
    }
}

bool ClientNode::Impl::OpenTransport() {
    const auto weak = weak_from_this();
    try {
        mTransport = SdTransport::Open(
            mStrand, mDeployment->network, mDrops,
            [weak](const ReceivedSdMessage& message) {
                if (const auto self = weak.lock()) {
                    self->Handle(message);
                }
            },
            [weak](const std::string& problem) {
                if (const auto self = weak.lock()) {
                    // Posted: a state machine must not be called back from inside its own call.
                    Post(self, [problem](Impl& node) { node.TransportFailed(problem); });
                }
            });
    } catch (const std::exception& exception) {
        mOpenProblem.Report("SOME/IP network: " + std::string(exception.what()));
        return false;
    }
    mOpenProblem.End();
    return true;
}

void ClientNode::Impl::CloseTransport() {
    for (const auto& service : mServices) {
        service->Undeploy({});
    }
    if (mTransport) {
        mTransport->Close();
        mTransport.reset();
    }
}

void ClientNode::Impl::TransportFailed(const std::string& problem) {
    if (mTransport && !mClosed) {
        mSendProblem.Report("SOME/IP network: " + problem);
        CloseTransport();
        mRetry = Clock::now() + kRetryInterval;
    }
}

void ClientNode::Impl::Handle(const ReceivedSdMessage& message) {
    mSendProblem.End();
    const auto now = Clock::now();
    for (const auto& service : mServices) {
        service->Handle(message, now);
    }
    SetTimer();
}

void ClientNode::Impl::Multicast(const std::vector<SdEntry>& entries) {
    if (mTransport) {
        mTransport->Multicast(entries);
    }
}

void ClientNode::Impl::Send(const Endpoint& peer, const std::vector<SdEntry>& entries) {
    if (mTransport) {
        mTransport->Send(peer, entries);
    }
}

std::chrono::milliseconds ClientNode::Impl::RandomBetween(std::chrono::milliseconds min,
                                                          std::chrono::milliseconds max) {
    std::uniform_int_distribution<std::chrono::milliseconds::rep> distribution(min.count(),
                                                                               max.count());
    return std::chrono::milliseconds(distribution(mRandom));
}

std::shared_ptr<DatagramSocket> ClientNode::Impl::OpenEventSocket(
    const Endpoint& peer, DatagramSocket::Receiver receiver,
    DatagramSocket::FailureHandler failed) {
    DatagramSocket::Settings settings;
    settings.local.address = ParseIpv4(mDeployment->network.address).value_or(0);
    settings.peer = peer;
    return DatagramSocket::Open(mStrand, settings, std::move(receiver), std::move(failed));
}

void ClientNode::Impl::AvailabilityChanged() {
    if (mIsStale && !mClosed) {
        Post(shared_from_this(), [](Impl& node) { node.ReadFile(); });
    }
}

void ClientNode::Impl::SetTimer() {
    std::optional<TimePoint> next = mRetry;
    const auto now = Clock::now();
    for (const auto& service : mServices) {
        next = Earlier(next, service->NextDeadline(now));
    }
    if (next == mTimerEnd || mClosed) {
        return;
    }
    mTimerEnd = next;
    if (!next) {
        mTimer.cancel();
        return;
    }
    mTimer.expires_at(*next);
    mTimer.async_wait([self = shared_from_this()](const auto& error) {
        if (!error) {
            self->Tick();
        }
    });
}

void ClientNode::Impl::Tick() {
    if (mClosed) {
        return;
    }
    mTimerEnd.reset();
    const auto now = Clock::now();
    if (IsDue(mRetry, now)) {
        mRetry.reset();
        if (!mWatch) {
            WatchDirectory();
        }
        ReadFile();
    }
    for (const auto& service : mServices) {
        service->Tick(now);
    }
    SetTimer();
}

}  // namespace someip
