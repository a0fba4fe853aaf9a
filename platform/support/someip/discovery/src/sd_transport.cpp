#include <stdexcept>
#include <utility>

#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

#include <someip/discovery/sd_transport.h>

namespace someip {

namespace {

std::uint32_t AddressOf(const sockaddr* address) {
    return ntohl(reinterpret_cast<const sockaddr_in*>(address)->sin_addr.s_addr);
}

bool Holds(const ifaddrs& entry, std::uint32_t address) {
    if (entry.ifa_addr == nullptr || entry.ifa_addr->sa_family != AF_INET) {
        return false;
    }
    const std::uint32_t own = AddressOf(entry.ifa_addr);
    if ((entry.ifa_flags & IFF_LOOPBACK) == 0 || entry.ifa_netmask == nullptr) {
        return own == address;
    }
    const std::uint32_t mask = AddressOf(entry.ifa_netmask);
    return (own & mask) == (address & mask);
}

Endpoint EndpointOf(const std::string& address, std::uint16_t port) {
    const auto parsed = ParseIpv4(address);
    if (!parsed) {
        throw std::runtime_error("'" + address + "' is no IPv4 address");
    }
    return {*parsed, port};
}

}  // namespace

int InterfaceOf(const NetworkDeployment& network) {
    const std::uint32_t address = EndpointOf(network.address, 0).address;
    ifaddrs* first = nullptr;
    if (::getifaddrs(&first) != 0) {
        throw std::runtime_error("the network interfaces can't be listed");
    }
    const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> guard(first, ::freeifaddrs);
    for (const ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next) {
        const bool isNamed =
            network.interfaceName.empty() || network.interfaceName == entry->ifa_name;
        if (isNamed && Holds(*entry, address)) {
            const unsigned index = ::if_nametoindex(entry->ifa_name);
            // With 0 the kernel would choose another one.
            if (index == 0) {
                throw std::runtime_error(std::string("interface ") + entry->ifa_name + " has gone");
            }
            return static_cast<int>(index);
        }
    }
    const std::string interfaceText =
        network.interfaceName.empty() ? "no interface" : "not interface " + network.interfaceName;
    throw std::runtime_error(interfaceText + " has the address " + network.address);
}

std::shared_ptr<SdTransport> SdTransport::Open(const boost::asio::any_io_executor& executor,
                                               const NetworkDeployment& network,
                                               std::shared_ptr<DropLog> drops, Handler handler,
                                               FailureHandler failed) {
    const int interfaceIndex = InterfaceOf(network);
    const Endpoint own = EndpointOf(network.address, network.sdPort);
    auto transport = std::make_shared<SdTransport>(own, std::move(drops));
    transport->mInterfaceIndex = interfaceIndex;
    transport->mGroupEndpoint = EndpointOf(network.multicastGroup, network.sdPort);
    transport->mHandler = std::move(handler);
    transport->mFailed = std::move(failed);
    const std::weak_ptr<SdTransport> weak = transport;
    const auto receiver = [&weak](bool multicast) {
        return
            [weak, multicast](const std::uint8_t* data, std::size_t size, const Endpoint& sender) {
                if (const auto self = weak.lock()) {
                    self->Receive(data, size, sender, multicast);
                }
            };
    };
    const auto broken = [weak](const std::string& problem) {
        if (const auto self = weak.lock()) {
            self->Fail(problem);
        }
    };
    DatagramSocket::Settings settings;
    settings.local = own;
    settings.multicastInterface = interfaceIndex;
    settings.multicastHops = network.multicastHops;
    transport->mUnicast = DatagramSocket::Open(executor, settings, receiver(false), broken);
    try {
        transport->mGroup = DatagramSocket::JoinGroup(executor, transport->mGroupEndpoint,
                                                      interfaceIndex, receiver(true), broken);
    } catch (...) {
        transport->Close();
        throw;
    }
    return transport;
}

void SdTransport::Close() {
    mHandler = nullptr;
    mFailed = nullptr;
    for (const auto& socket : {mUnicast, mGroup}) {
        if (socket) {
            socket->Close();
        }
    }
    mClaim.reset();
}

void SdTransport::Fail(const std::string& problem) {
    if (const FailureHandler failed = std::exchange(mFailed, nullptr)) {
        failed(problem);
    }
}

void SdTransport::Multicast(const std::vector<SdEntry>& entries) {
    const auto problem = SendStamped(mGroupEndpoint, entries, mSessions.NextMulticast());
    if (problem) {
        // The interface is down or removed, which ends the membership in the group.
        Fail("no multicast to " + ToText(mGroupEndpoint) + ": " + *problem);
    }
}

void SdTransport::Send(const Endpoint& peer, const std::vector<SdEntry>& entries) {
    const auto problem = SendStamped(peer, entries, mSessions.NextUnicast(peer));
    if (problem) {
        mDrops->Dropped("to " + ToText(peer) + ", not sent: " + *problem, Clock::now());
    }
}

std::optional<std::string> SdTransport::SendStamped(const Endpoint& peer,
                                                    const std::vector<SdEntry>& entries,
                                                    const SdStamp& stamp) {
    SdMessage sd;
    sd.reboot = stamp.reboot;
    sd.entries = entries;
    return mUnicast->SendTo(peer, Encode(ToMessage(sd, stamp.sessionId)));
}

void SdTransport::Receive(const std::uint8_t* data, std::size_t size, const Endpoint& sender,
                          bool multicast) {
    if (sender == mUnicast->Local()) {
        return;
    }
    if (sender.port == 0) {
        Drop("source port 0", sender);
        return;
    }
    DecodeAll(
        data, size, [&](const Message& message) { Take(message, sender, multicast); },
        [&](const std::string& problem) { Drop(problem, sender); });
}

void SdTransport::Take(const Message& message, const Endpoint& sender, bool multicast) {
    std::string problem;
    auto content = ParseSdMessage(message, problem);
    if (!content) {
        Drop(problem, sender);
        return;
    }
    ReceivedSdMessage received;
    received.sender = sender;
    received.multicast = multicast;
    received.rebooted =
        mReboots.HasRebooted(sender, multicast, {message.sessionId, content->reboot});
    received.content = std::move(*content);
    if (const Handler handler = mHandler) {
        handler(received);
    }
}

void SdTransport::Drop(const std::string& problem, const Endpoint& sender) {
    mDrops->Dropped(problem + ", from " + ToText(sender), Clock::now());
}

}  // namespace someip
