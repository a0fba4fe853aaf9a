#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

namespace service_access {

/// How the server answers a subscription to the clamp state.
enum class SubscriptionAnswer { kAccept, kRefuse, kSilent };

/// Server side of the service access layer: what the clamp control service, the immobilizer service
/// and the service registry of a vehicle look like to a client.
///
/// It listens on a Unix socket and speaks the protocol of docs/service-access.md. Every operation
/// may be called from any thread and in any order; what was set before Start, or while the server
/// is stopped, holds from the next Start on. The server has one thread of its own and makes no
/// callbacks.
class Server {
public:
    /// `socketPath` is absolute and at most 107 bytes long.
    explicit Server(std::string socketPath);

    /// Stops.
    ~Server();

    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    /// Creates the socket with mode 0600 and serves from now on; no effect if it serves already. A
    /// socket file that nobody listens on any more is replaced.
    ///
    /// Throws std::system_error if the socket cannot be made, with EADDRINUSE if another process
    /// serves there.
    void Start();

    /// Closes all connections, removes the socket file and ends the thread. A stopped server can be
    /// started again.
    void Stop();

    /// Registers or removes a service ("ClampControl", "Immobilizer" or any other name) and
    /// notifies every client. Removing a service ends the subscriptions to it. At first none is
    /// available.
    void SetServiceAvailable(const std::string& name, bool available);

    /// Sets the state of Clamp 15 and notifies every subscriber, if it is a change. Without a value
    /// the state is unknown, and nobody is notified. At first it is unknown.
    void SetClampState(std::optional<bool> on);

    /// Sets how further clamp subscriptions are answered; at first kAccept.
    void SetClampSubscriptionAnswer(SubscriptionAnswer answer);

    /// Sets the vehicle identification number that the immobilizer reports. Without a value it
    /// reports a record that has none, as at first.
    void SetImmobilizerVin(std::optional<std::string> vin);

    /// Makes the immobilizer answer queries with this HTTP status, 200 to 599, and no record.
    /// Throws std::invalid_argument for another one.
    void SetImmobilizerStatus(unsigned status);

    /// Makes the immobilizer answer queries with status 200 and this body, valid or not.
    void SetImmobilizerBody(std::string body);

    /// Makes the immobilizer accept queries and answer none.
    void SetImmobilizerSilent();

    /// Sends a text, valid or not, to every client with an event channel.
    void SendRawEvent(const std::string& text);

    /// The number of active clamp subscriptions.
    std::size_t ClampSubscriptionCount() const;

private:
    class Impl;
    std::unique_ptr<Impl> mImpl;
};

}  // namespace service_access
