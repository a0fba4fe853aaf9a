#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>

#include "info_service.h"
#include "unix_asio.h"

namespace service_access {

class ClientSession;

/// What the sessions of a server need of it. Called on the thread of the socket.
class SessionOwner {
public:
    virtual ~SessionOwner() = default;

    /// The answer to a request, or nothing if it is to stay unanswered.
    virtual std::optional<InfoAnswer> AnswerRequest(std::string_view target) = 0;
    virtual void EventsOpened(ClientSession& session) = 0;
    /// Throws std::exception if the message is malformed; the connection is then closed.
    virtual void MessageReceived(ClientSession& session, const std::string& text) = 0;
    /// The session is over; the last call.
    virtual void SessionEnded(const std::shared_ptr<ClientSession>& session) = 0;
};

/// One accepted connection: a request, or the event channel that one was upgraded to. All on the
/// thread of the socket. A client that is slow with a request or in reading an answer is
/// disconnected.
class ClientSession : public std::enable_shared_from_this<ClientSession> {
public:
    /// `owner` must outlive the session.
    ClientSession(UnixProtocol::socket socket, SessionOwner& owner);

    ClientSession(const ClientSession&) = delete;
    ClientSession& operator=(const ClientSession&) = delete;

    /// Reads and serves the request.
    void Start();

    /// Sends a text on the event channel; no effect if the client has opened none. A client for
    /// which 1024 texts wait is disconnected.
    void Send(std::string text);

    /// Closes the connection.
    void Drop();

    bool ListensToEvents() const { return mListensToEvents; }

    /// The ids of the active subscriptions of this channel, kept for the owner.
    std::set<std::string>& Subscriptions() { return mSubscriptions; }
    const std::set<std::string>& Subscriptions() const { return mSubscriptions; }

private:
    using Socket = UnixProtocol::socket;

    Socket& GetSocket() { return mStream.next_layer(); }
    void StartDeadline();
    void LiftDeadline();
    void Dispatch();
    void Respond(InfoAnswer answer);
    void WaitForEnd();
    void OpenEvents();
    void ReadMessage();
    void HandleMessage();
    void SendNext();

    SessionOwner& mOwner;
    boost::asio::steady_timer mDeadline;
    boost::beast::websocket::stream<Socket> mStream;
    boost::beast::flat_buffer mBuffer;
    boost::beast::http::request_parser<boost::beast::http::string_body> mParser;
    boost::beast::http::response<boost::beast::http::string_body> mResponse;
    std::deque<std::string> mToSend;
    std::set<std::string> mSubscriptions;
    bool mListensToEvents = false;
    bool mEnded = false;
};

}  // namespace service_access
