#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <boost/asio/any_io_executor.hpp>

#include <someip/discovery/deployment.h>
#include <someip/discovery/discovery_environment.h>
#include <someip/discovery/sd_sessions.h>
#include <someip/log/drop_log.h>
#include <someip/network/address_claim.h>
#include <someip/network/datagram_socket.h>

namespace someip {

/// Index of the network interface that has `network`'s address, by name if it is given. All of
/// 127.0.0.0/8 is on the loopback interface. Throws std::runtime_error if there is none.
int InterfaceOf(const NetworkDeployment& network);

/// Messages of service discovery to and from the network: by unicast on the own address, and by
/// multicast. All calls, and the handlers, on the executor that it was made with.
class SdTransport : public std::enable_shared_from_this<SdTransport> {
public:
    using Handler = std::function<void(const ReceivedSdMessage& message)>;
    using FailureHandler = std::function<void(const std::string& problem)>;

    /// Receives until it is closed. `failed` is called at most once, when the network has become
    /// unavailable; a new transport must then be opened. Throws std::runtime_error if the network
    /// is unavailable.
    static std::shared_ptr<SdTransport> Open(const boost::asio::any_io_executor& executor,
                                             const NetworkDeployment& network,
                                             std::shared_ptr<DropLog> drops, Handler handler,
                                             FailureHandler failed);

    SdTransport(const Endpoint& own, std::shared_ptr<DropLog> drops)
        : mClaim(std::in_place, own), mDrops(std::move(drops)) {}

    ~SdTransport() { Close(); }
    SdTransport(const SdTransport&) = delete;
    SdTransport& operator=(const SdTransport&) = delete;

    /// Index of the interface that it was opened on.
    int InterfaceIndex() const { return mInterfaceIndex; }

    /// Sends to the multicast group; `failed` is called if that is not possible.
    void Multicast(const std::vector<SdEntry>& entries);
    /// Sends to a peer; a datagram that cannot be sent is counted as dropped.
    void Send(const Endpoint& peer, const std::vector<SdEntry>& entries);

    /// No handler is called afterwards.
    void Close();

private:
    void Receive(const std::uint8_t* data, std::size_t size, const Endpoint& sender,
                 bool multicast);
    void Take(const Message& message, const Endpoint& sender, bool multicast);
    void Drop(const std::string& problem, const Endpoint& sender);
    std::optional<std::string> SendStamped(const Endpoint& peer,
                                           const std::vector<SdEntry>& entries,
                                           const SdStamp& stamp);
    void Fail(const std::string& problem);

    std::optional<AddressClaim> mClaim;
    std::shared_ptr<DropLog> mDrops;
    int mInterfaceIndex{0};
    Endpoint mGroupEndpoint;
    Handler mHandler;
    FailureHandler mFailed;
    std::shared_ptr<DatagramSocket> mUnicast;
    std::shared_ptr<DatagramSocket> mGroup;
    SdSessions mSessions;
    RebootDetector mReboots;
};

}  // namespace someip
