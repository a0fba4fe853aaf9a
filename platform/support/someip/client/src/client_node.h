#pragma once

#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>

#include <posix/directory_watch.h>
#include <someip/client/service_client.h>
#include <someip/discovery/sd_transport.h>
#include <someip/log/lasting_problem.h>
#include <someip/network/network_watch.h>

#include "client_service.h"

namespace someip {

/// What a ClientNode does. Everything but the constructor runs on the strand.
class ClientNode::Impl : public std::enable_shared_from_this<ClientNode::Impl>,
                         public ClientService::Node {
public:
    Impl(boost::asio::io_context& context, std::string path);

    boost::asio::io_context& Context() { return mContext; }

    /// Runs `work` on the strand, keeps the node alive until then, and sets the timer for what it
    /// has changed.
    template <typename Work>
    static void Post(const std::shared_ptr<Impl>& node, Work work) {
        boost::asio::post(node->mStrand, [node, work = std::move(work)] {
            work(*node);
            node->SetTimer();
        });
    }

    void Start();
    void Close();
    void Add(const std::shared_ptr<ClientService>& service);
    void Remove(const std::shared_ptr<ClientService>& service);

private:
    void Multicast(const std::vector<SdEntry>& entries) override;
    void Send(const Endpoint& peer, const std::vector<SdEntry>& entries) override;
    std::chrono::milliseconds RandomBetween(std::chrono::milliseconds min,
                                            std::chrono::milliseconds max) override;
    std::shared_ptr<DatagramSocket> OpenEventSocket(const Endpoint& peer,
                                                    DatagramSocket::Receiver receiver,
                                                    DatagramSocket::FailureHandler failed) override;
    void AvailabilityChanged() override;

    void WatchDirectory();
    void NetworkChanged();
    bool IsOnItsInterface() const;
    void DirectoryChanged(const posix::DirectoryWatch::Report& report);
    void ReadFile();
    void Apply(Deployment deployment);
    bool OpenTransport();
    void CloseTransport();
    void TransportFailed(const std::string& problem);
    void Handle(const ReceivedSdMessage& message);
    void SetTimer();
    void Tick();

    boost::asio::io_context& mContext;
    Strand mStrand;
    boost::asio::steady_timer mTimer;
    std::optional<TimePoint> mTimerEnd;
    const std::string mPath;
    std::shared_ptr<posix::DirectoryWatch> mWatch;
    std::shared_ptr<NetworkWatch> mNetworkWatch;
    /// From the last readable file.
    std::optional<Deployment> mDeployment;
    /// The file has changed while a service was available; it is read when none is any more, so
    /// that no subscription is interrupted.
    bool mIsStale{false};
    std::shared_ptr<SdTransport> mTransport;
    std::shared_ptr<DropLog> mDrops;
    /// When to try again to watch the directory or to open the network, whose return is not
    /// reported.
    std::optional<TimePoint> mRetry;
    std::vector<std::shared_ptr<ClientService>> mServices;
    std::mt19937 mRandom;
    LastingProblem mFileProblem;
    LastingProblem mOpenProblem;
    /// Ends when a message arrives, since a reopened network need not work.
    LastingProblem mSendProblem;
    bool mClosed{false};
};

}  // namespace someip
