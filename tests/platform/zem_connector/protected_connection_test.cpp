#include <cstdlib>
#include <vector>

#include <gtest/gtest.h>
#include <zem_connector_host/connector_file.h>
#include <zem_connector_host/socket_status.h>

#include <zem_connector/zem_connector.h>

#include "callback_recorder.h"
#include "scripted_peer.h"
#include "testing/captured_log.h"
#include "testing/temporary_directory.h"

namespace zem_connector {

using host::ProxySettings;
using host::ProxyType;
using host::SocketStatus;
using host::TlsSettings;
using host::TlsVersion;
using testing_support::CertificateTraits;
using testing_support::Gate;
using testing_support::Identity;
using testing_support::Stream;

constexpr const char* kServerName = "backend.test";

/// A server's certificate under a root of its own.
struct ServerFamily {
    static CertificateTraits Traits(const std::string& names) {
        CertificateTraits traits;
        traits.commonName = kServerName;
        traits.extensions["subjectAltName"] = names;
        return traits;
    }
    static const ServerFamily& Get() {
        static const ServerFamily family;
        return family;
    }

    Identity root = SelfSigned(testing_support::CaTraits("Root"));
    Identity server = IssuedBy(root, Traits("DNS:backend.test,IP:127.0.0.1"));
};

/// A connector whose one operation is protected, and the client's end of its connections.
class ProtectedConnectionTest : public testing::Test {
protected:
    void SetUp() override {
        setenv("ZEM_CONNECTOR_CONFIG", mDirectory.File("file.json").c_str(), 1);
        mTls.trustAnchors = WriteAnchors("root.pem", ServerFamily::Get().root.Pem());
        mTls.serverName = kServerName;
        mFile.connectTimeout = std::chrono::minutes(10);
    }

    std::string WriteAnchors(const std::string& name, const std::string& pem) {
        return mDirectory.Write(name, pem);
    }

    void Start() {
        mFile.operations["op"] = {mTls, mProxy};
        if (mInClear) {
            mFile.operations["op"].tls.reset();
        }
        mFile.WriteAtomically(mDirectory.File("file.json"));
        mConnector = std::make_unique<ZemConnector>(nullptr, nullptr);
        ASSERT_EQ(mConnector->Start(), SessionStatus::kStarted);
    }

    void BeginConnect(unsigned short port, const std::string& host = "127.0.0.1") {
        if (!mConnector) {
            Start();
        }
        ASSERT_TRUE(mConnector->SocketConnect("op", host, port, &mRecorder));
    }

    /// The status of an attempt to connect.
    std::string Connect(unsigned short port, const std::string& host = "127.0.0.1") {
        BeginConnect(port, host);
        return Await(mRecorder, mClient);
    }

    /// The status of an attempt, and its socket.
    static std::string Await(CallbackRecorder& recorder, Stream& client) {
        std::string status = recorder.Next();
        client = Stream(recorder.Socket());
        return status;
    }

    static std::string Status(SocketStatus status) { return "socket " + std::to_string(status); }

    testing_support::TemporaryDirectory mDirectory;
    testing_support::CapturedLog mLog;
    host::ConnectorFile mFile;
    TlsSettings mTls;
    std::optional<ProxySettings> mProxy;
    bool mInClear{false};
    CallbackRecorder mRecorder;
    std::unique_ptr<ZemConnector> mConnector;
    Stream mClient;
};

/// Says back what comes, to the client's proper end.
void Echo(TlsServer& server) {
    for (std::string text = server.Read(65536); !text.empty(); text = server.Read(65536)) {
        server.Write(text);
    }
    server.End();
}

ScriptedPeer::Script EchoBy(const Identity& identity, int maxVersion = 0) {
    return [identity, maxVersion](const Stream& stream) {
        TlsServer server(stream, identity, maxVersion);
        Echo(server);
    };
}

/// A further connection of the same connector, whose peer echoes.
class Witness {
public:
    explicit Witness(ZemConnector& connector) : mPeer(EchoBy(ServerFamily::Get().server)) {
        EXPECT_TRUE(connector.SocketConnect("op", "127.0.0.1", mPeer.Port(), &mRecorder));
        mRecorder.Next();
        mClient = Stream(mRecorder.Socket());
    }
    ~Witness() { EXPECT_EQ(mClient.EndSending().Read(1), ""); }

    void RoundTrip() const { EXPECT_EQ(mClient.Send("x").Read(1), "x"); }

private:
    ScriptedPeer mPeer;
    CallbackRecorder mRecorder;
    Stream mClient;
};

constexpr std::size_t kMoreThanAnyBuffer = std::size_t{64} * 1024 * 1024;

/// Sends until the connector takes no more, and returns what went.
///
/// All connections share the connector's one thread: in the time of some round trips on another one
/// it would have taken something from this one, too, if it were not to hold it back.
std::string SendUntilHeldBack(const Stream& client, const Witness& witness) {
    constexpr int kRoundTrips = 20;
    std::string sent;
    std::string part(8192, '\0');
    for (int idle = 0; idle < kRoundTrips && sent.size() < kMoreThanAnyBuffer;) {
        for (char& c : part) {
            c = static_cast<char>(sent.size() * 31 +
                                  static_cast<std::size_t>(&c - part.data()) / 7);
        }
        const ssize_t size =
            send(client.Get(), part.data(), part.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (size > 0) {
            sent.append(part, 0, static_cast<std::size_t>(size));
            idle = 0;
        } else {
            witness.RoundTrip();
            ++idle;
        }
    }
    return sent;
}

struct RefusalCase {
    const char* name;
    ScriptedPeer::Script peer;
    SocketStatus status;
    const char* log;
    TlsSettings settings{"", kServerName, TlsVersion::kTls12};
};

std::vector<RefusalCase> Refusals() {
    const ServerFamily& family = ServerFamily::Get();
    const auto issued = [&family](const std::function<void(CertificateTraits&)>& change) {
        CertificateTraits traits = ServerFamily::Traits("DNS:backend.test");
        change(traits);
        return EchoBy(IssuedBy(family.root, traits));
    };
    const auto day = std::chrono::hours(24);
    const auto now = std::chrono::system_clock::now();
    constexpr auto kCertificate = host::kSocketCertificateRejected;
    constexpr auto kHandshake = host::kSocketHandshakeFailed;
    return {
        {"WrongName", issued([](auto& t) { t.extensions["subjectAltName"] = "DNS:other.test"; }),
         kCertificate, "hostname mismatch"},
        {"NameInTheSubjectOnly", issued([](auto& t) { t.extensions["subjectAltName"] = ""; }),
         kCertificate, "hostname mismatch"},
        {"WrongAddress",
         EchoBy(family.server),
         kCertificate,
         "IP address mismatch",
         {"", "127.0.0.2", TlsVersion::kTls12}},
        {"Expired", issued([&](auto& t) {
             t.notBefore = now - 2 * day;
             t.notAfter = now - day;
         }),
         kCertificate, "certificate has expired"},
        {"NotForServers", issued([](auto& t) { t.extendedKeyUsage = "clientAuth"; }), kCertificate,
         "certificate purpose"},
        {"Untrusted", EchoBy(SelfSigned(ServerFamily::Traits("DNS:backend.test"))), kCertificate,
         "self-signed certificate"},
        {"OldVersionOnly", EchoBy(family.server, TLS1_1_VERSION), kHandshake, "protocol version"},
        {"BelowTheMinimum",
         EchoBy(family.server, TLS1_2_VERSION),
         kHandshake,
         "protocol version",
         {"", kServerName, TlsVersion::kTls13}},
        {"NoTls",
         [](const Stream& stream) {
             stream.Send("HTTP/1.1 400 Bad Request\r\n\r\n");
             stream.Read(65536);
         },
         kHandshake, "wrong version number"},
        {"EndsAtOnce", [](const Stream& stream) { stream.Read(100); }, kHandshake, ""},
        {"NoAnchors",
         [](const Stream&) { ADD_FAILURE() << "connected"; },
         host::kSocketFailed,
         "/nonexistent: No such file",
         {"/nonexistent", kServerName, TlsVersion::kTls12}},
        {"AnchorsThatAreNone",
         [](const Stream&) { ADD_FAILURE() << "connected"; },
         host::kSocketFailed,
         "certificates in PEM expected",
         {"/etc/passwd", kServerName, TlsVersion::kTls12}},
    };
}

TEST_F(ProtectedConnectionTest, ARefusedPeerGivesAStatusAndNoSocket) {
    const std::string anchors = mTls.trustAnchors;
    for (const RefusalCase& c : Refusals()) {
        SCOPED_TRACE(c.name);
        mTls = c.settings;
        mTls.trustAnchors = mTls.trustAnchors.empty() ? anchors : mTls.trustAnchors;
        mConnector.reset();
        mLog.Clear();
        ScriptedPeer peer(c.peer);
        const std::string port = std::to_string(peer.Port());
        EXPECT_EQ(Connect(peer.Port()), Status(c.status));
        EXPECT_FALSE(mClient.IsOpen());
        EXPECT_EQ(mLog.Count("Can't connect to 127.0.0.1:" + port + " for op"), 1U);
        EXPECT_GE(mLog.Count(c.log), 1U);
    }
}

TEST_F(ProtectedConnectionTest, APeerThatKeepsSilentInTheHandshakeTimesOut) {
    TcpListener silent;
    mFile.connectTimeout = std::chrono::milliseconds(100);
    EXPECT_EQ(Connect(silent.Port()), Status(host::kSocketTimeout));
    EXPECT_EQ(mLog.Count("the TLS handshake not ended in time"), 1U);
}

TEST_F(ProtectedConnectionTest, BytesGoBothWaysOnceThePeerIsKnown) {
    const Identity& server = ServerFamily::Get().server;
    const std::string bundle =
        testing_support::PemOf({SelfSigned(testing_support::CaTraits("Other")), server});
    const std::string pinned = WriteAnchors("pinned.pem", bundle);
    struct Case {
        TlsSettings settings;
        int maxVersion;
        std::string version;
    };
    const std::vector<Case> cases = {
        {mTls, 0, "TLSv1.3"},
        {mTls, TLS1_2_VERSION, "TLSv1.2"},
        {{mTls.trustAnchors, "", TlsVersion::kTls13}, 0, "TLSv1.3"},
        {{pinned, kServerName, TlsVersion::kTls13}, 0, "TLSv1.3"},
    };
    for (const Case& c : cases) {
        mTls = c.settings;
        mConnector.reset();
        mLog.Clear();
        ScriptedPeer peer(EchoBy(server, c.maxVersion));
        ASSERT_EQ(Connect(peer.Port()), Status(host::kSocketConnected));
        EXPECT_EQ(mLog.Count(" by " + c.version), 1U);
        EXPECT_EQ(mClient.Send("hello").Read(5), "hello");
        mClient.Close();
    }
}

TEST_F(ProtectedConnectionTest, AnIpV6PeerIsReachedToo) {
    const int probe = socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in6 loopback{};
    loopback.sin6_family = AF_INET6;
    loopback.sin6_addr = in6addr_loopback;
    const bool usable =
        bind(probe, reinterpret_cast<const sockaddr*>(&loopback), sizeof(loopback)) == 0;
    close(probe);
    if (!usable) {
        GTEST_SKIP() << "no IPv6 here";
    }
    const ScriptedPeer peer(EchoBy(ServerFamily::Get().server), AF_INET6);
    EXPECT_EQ(Connect(peer.Port(), "::1"), Status(host::kSocketConnected));
}

TEST_F(ProtectedConnectionTest, WhoIsSlowHoldsTheOthersBackAndNothingIsLost) {
    ScriptedPeer peer(EchoBy(ServerFamily::Get().server));
    ASSERT_EQ(Connect(peer.Port()), Status(host::kSocketConnected));
    // As long as we do not read, the echo stands still, and then what is on its way to it.
    const std::string sent = SendUntilHeldBack(mClient, Witness(*mConnector));
    EXPECT_LT(sent.size(), kMoreThanAnyBuffer);
    EXPECT_TRUE(mClient.Read(sent.size()) == sent);
    mClient.Close();
}

TEST_F(ProtectedConnectionTest, TheEndOfTheStreamComesAndACutOneIsNoticed) {
    for (const bool proper : {true, false}) {
        ScriptedPeer peer([proper](const Stream& stream) {
            TlsServer server(stream, ServerFamily::Get().server);
            server.Write("answer");
            if (proper) {
                server.End();
            }
        });
        ASSERT_EQ(Connect(peer.Port()), Status(host::kSocketConnected));
        EXPECT_EQ(mClient.Read(4096), "answer");
        EXPECT_TRUE(proper || mLog.WaitFor("may lack its end: the connection ended in the middle"));
        EXPECT_EQ(mLog.Count("may lack its end"), proper ? 0U : 1U);
        mClient.Close();
    }
}

TEST_F(ProtectedConnectionTest, AClientThatEndsItsDirectionStillGetsTheAnswer) {
    for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
        ScriptedPeer peer([version](const Stream& stream) {
            TlsServer server(stream, ServerFamily::Get().server, version);
            const std::string request = server.ReadToEnd();
            server.Write("got " + request);
            server.End();
        });
        ASSERT_EQ(Connect(peer.Port()), Status(host::kSocketConnected));
        EXPECT_EQ(mClient.Send("request").EndSending().Read(4096), "got request");
        mClient.Close();
    }
}

TEST_F(ProtectedConnectionTest, WhatAClientSentBeforeItClosedArrives) {
    testing_support::EventRecorder seen;
    ScriptedPeer peer([&seen](const Stream& stream) {
        TlsServer server(stream, ServerFamily::Get().server);
        const std::string text = server.ReadToEnd();
        // Nobody listens any more, so the connection goes, whether we end our direction or not.
        seen.Add(stream.Read(1).empty() ? text : "still open");
    });
    ASSERT_EQ(Connect(peer.Port()), Status(host::kSocketConnected));
    const std::string text(100000, 'x');
    mClient.Send(text);
    mClient.Close();
    EXPECT_TRUE(seen.Next() == text);
}

TEST_F(ProtectedConnectionTest, APeerThatNeverTakesItIsWaitedForWithinALimit) {
    Gate done;
    ScriptedPeer peer([&done](const Stream& stream) {
        TlsServer server(stream, ServerFamily::Get().server);
        done.Pass();
    });
    mFile.closeTimeout = std::chrono::milliseconds(0);
    ASSERT_EQ(Connect(peer.Port()), Status(host::kSocketConnected));
    SendUntilHeldBack(mClient, Witness(*mConnector));
    mClient.Close();
    EXPECT_TRUE(mLog.WaitFor("did not take all that the client had sent"));
    done.Open();
}

TEST_F(ProtectedConnectionTest, APeerThatAnswersWithoutReadingIsHeardNevertheless) {
    Gate done;
    ScriptedPeer peer([&done](const Stream& stream) {
        TlsServer server(stream, ServerFamily::Get().server);
        server.Write("enough");
        server.End();
        done.Pass();
    });
    ASSERT_EQ(Connect(peer.Port()), Status(host::kSocketConnected));
    mClient.Send(std::string(100000, 'x'));
    EXPECT_EQ(mClient.Read(4096), "enough");
    done.Open();
}

TEST_F(ProtectedConnectionTest, APeerThatHasGoneTakesNoMoreAndRaisesNoSignal) {
    for (const bool resets : {true, false}) {
        ScriptedPeer peer([resets](const Stream& stream) {
            TlsServer server(stream, ServerFamily::Get().server);
            if (resets) {
                const linger reset{1, 0};
                setsockopt(stream.Get(), SOL_SOCKET, SO_LINGER, &reset, sizeof(reset));
            } else {
                server.End();
            }
        });
        ASSERT_EQ(Connect(peer.Port()), Status(host::kSocketConnected));
        EXPECT_EQ(mClient.Read(4096), "");
        const std::string text(65536, 'x');
        while (send(mClient.Get(), text.data(), text.size(), MSG_NOSIGNAL) > 0) {
        }
        mClient.Close();
    }
}

TEST_F(ProtectedConnectionTest, PeersThatTrickleOrFloodHarmNobodyElse) {
    Gate done;
    const Identity& server = ServerFamily::Get().server;
    ScriptedPeer flooding([&server](const Stream& stream) {
        TlsServer tls(stream, server);
        while (tls.Write(std::string(65536, 'x'))) {
        }
    });
    ScriptedPeer trickling([&done](const Stream& stream) {
        stream.Send("\x16");
        done.Pass();
    });
    ScriptedPeer good(EchoBy(server));
    ASSERT_EQ(Connect(flooding.Port()), Status(host::kSocketConnected));
    const Stream flooded = std::move(mClient);
    CallbackRecorder waiting;
    ASSERT_TRUE(mConnector->SocketConnect("op", "127.0.0.1", trickling.Port(), &waiting));

    EXPECT_EQ(flooded.Read(1000000), std::string(1000000, 'x'));
    ASSERT_EQ(Connect(good.Port()), Status(host::kSocketConnected));
    EXPECT_EQ(mClient.Send("hello").Read(5), "hello");
    mConnector->Stop();
    EXPECT_EQ(waiting.Waiting(), 0U);
    done.Open();
}

enum class Moment { kConnect, kProxy, kHandshake, kIdle, kFlood };

class StopTest : public ProtectedConnectionTest, public testing::WithParamInterface<Moment> {};

TEST_P(StopTest, EndsWhateverIsUnderWay) {
    const Moment moment = GetParam();
    const bool connects = moment == Moment::kIdle || moment == Moment::kFlood;
    TcpListener listener(moment == Moment::kConnect ? 0 : 8);
    if (moment == Moment::kConnect) {
        listener.StopAnswering();
    }
    if (moment == Moment::kProxy) {
        mProxy = ProxySettings{ProxyType::kSocks5, "127.0.0.1", listener.Port(), "", ""};
    }
    Gate done;
    ScriptedPeer peer([&](const Stream& stream) {
        TlsServer server(stream, ServerFamily::Get().server);
        while (moment == Moment::kFlood && server.Write(std::string(65536, 'x'))) {
        }
        done.Pass();
    });
    BeginConnect(connects ? peer.Port() : listener.Port());
    if (connects) {
        ASSERT_EQ(Await(mRecorder, mClient), Status(host::kSocketConnected));
    } else if (moment != Moment::kConnect) {
        EXPECT_EQ(listener.Accept().Read(1).size(), 1U);
    }
    if (moment == Moment::kFlood) {
        mClient.Read(1000000);
    }
    mConnector->Stop();
    const std::size_t callbacks = mRecorder.Waiting();
    if (connects) {
        const std::string rest = mClient.Read(std::size_t{64} * 1024 * 1024);
        EXPECT_EQ(rest.empty(), moment == Moment::kIdle);
        EXPECT_EQ(mLog.Count("1 protected connections end with the session"), 1U);
    }
    mConnector.reset();
    EXPECT_EQ(mRecorder.Waiting(), callbacks);
    done.Open();
}

INSTANTIATE_TEST_SUITE_P(Moments, StopTest,
                         testing::Values(Moment::kConnect, Moment::kProxy, Moment::kHandshake,
                                         Moment::kIdle, Moment::kFlood));

/// One request that a proxy expects, and what it says to that.
struct Exchange {
    std::string request;
    std::string answer;
};

void Converse(const Stream& stream, const std::vector<Exchange>& exchanges) {
    for (const Exchange& exchange : exchanges) {
        EXPECT_EQ(stream.Read(exchange.request.size()), exchange.request);
        // In pieces, since a stream has no borders.
        for (const char c : exchange.answer) {
            stream.Send(std::string(1, c));
        }
    }
}

const std::string kSocksGranted("\5\0\0\1\0\0\0\0\0\0", 10);

class ProxiedConnectionTest : public ProtectedConnectionTest {
protected:
    void UseProxy(ProxyType type, const ScriptedPeer& proxy, const std::string& user) {
        mProxy = ProxySettings{type, "127.0.0.1", proxy.Port(), user, user.empty() ? "" : "secret"};
    }

    /// Names are the proxy's to look up.
    std::string ConnectToBackend() {
        mConnector.reset();
        return Connect(443, kServerName);
    }
};

TEST_F(ProxiedConnectionTest, ProxiesOfBothKindsLeadToAProtectedPeer) {
    const std::string head = "CONNECT backend.test:443 HTTP/1.1\r\nHost: backend.test:443\r\n";
    const std::string socksConnect = std::string("\5\1\0\3\14", 5) + kServerName + "\1\xbb";
    struct Case {
        ProxyType type;
        std::string user;
        std::vector<Exchange> exchanges;
    };
    const std::vector<Case> cases = {
        {ProxyType::kHttp, "", {{head + "\r\n", "HTTP/1.1 200 OK\r\n\r\n"}}},
        {ProxyType::kHttp,
         "user",
         {{head + "Proxy-Authorization: Basic dXNlcjpzZWNyZXQ=\r\n\r\n",
           "HTTP/1.0 200 Connected\r\nVia: x\r\n\r\n"}}},
        {ProxyType::kSocks5,
         "",
         {{std::string("\5\1\0", 3), std::string("\5\0", 2)}, {socksConnect, kSocksGranted}}},
        {ProxyType::kSocks5,
         "user",
         {{std::string("\5\2\0\2", 4), "\5\2"},
          {"\1\4user\6secret", std::string("\1\0", 2)},
          {socksConnect, kSocksGranted}}},
    };
    for (const Case& c : cases) {
        ScriptedPeer proxy([&c](const Stream& stream) {
            Converse(stream, c.exchanges);
            TlsServer server(stream, ServerFamily::Get().server);
            Echo(server);
        });
        UseProxy(c.type, proxy, c.user);
        ASSERT_EQ(ConnectToBackend(), Status(host::kSocketConnected));
        EXPECT_EQ(mClient.Send("hello").Read(5), "hello");
        mClient.Close();
    }
}

TEST_F(ProxiedConnectionTest, InClearThePeersFirstBytesAreNotLost) {
    mInClear = true;
    ScriptedPeer proxy([](const Stream& stream) {
        stream.Send("HTTP/1.1 200 OK\r\n\r\nhello");
        stream.Read(65536);
    });
    UseProxy(ProxyType::kHttp, proxy, "");
    ASSERT_EQ(ConnectToBackend(), Status(host::kSocketConnected));
    EXPECT_EQ(mClient.Read(5), "hello");
    mClient.Close();
}

TEST_F(ProxiedConnectionTest, AProxyThatRefusesOrTalksNonsenseGivesAStatusAndNoSocket) {
    struct Case {
        ProxyType type;
        std::string answer;
        SocketStatus status;
        std::string log;
    };
    const std::vector<Case> cases = {
        {ProxyType::kHttp, "HTTP/1.1 407 \r\n\r\n", host::kSocketProxyFailed, "refused with 407"},
        {ProxyType::kHttp, "HTTP/1.1 200 " + std::string(100000, 'x'), host::kSocketProxyFailed,
         "makes no sense"},
        {ProxyType::kHttp, "HTTP/1.1 200 OK\r\n", host::kSocketProxyFailed, "End of file"},
        {ProxyType::kHttp, "SSH-2.0-x\r\n\r\n", host::kSocketProxyFailed, "makes no sense"},
        {ProxyType::kSocks5, "\5\xff", host::kSocketProxyFailed, "refused with 255"},
        {ProxyType::kSocks5, "\5\2", host::kSocketProxyFailed, "makes no sense"},
        {ProxyType::kSocks5, std::string("\5\0\5\5", 4), host::kSocketRefused, "refused with 5"},
        {ProxyType::kSocks5, std::string("\5\0\5\4", 4), host::kSocketUnreachable, ""},
        {ProxyType::kSocks5, std::string("\5\0\5\6", 4), host::kSocketTimeout, ""},
        {ProxyType::kSocks5, std::string("\5\0\5\2", 4), host::kSocketProxyFailed, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.answer.substr(0, 20));
        mLog.Clear();
        ScriptedPeer proxy([&c](const Stream& stream) {
            stream.Read(3);
            stream.Send(c.answer).EndSending();
            stream.Read(65536);
        });
        UseProxy(c.type, proxy, "");
        EXPECT_EQ(ConnectToBackend(), Status(c.status));
        EXPECT_FALSE(mClient.IsOpen());
        EXPECT_GE(mLog.Count(c.log), 1U);
    }
}

TEST_F(ProxiedConnectionTest, ATargetThatIsNoHostIsNotToldToTheProxy) {
    ScriptedPeer proxy([](const Stream&) { ADD_FAILURE() << "connected"; });
    UseProxy(ProxyType::kHttp, proxy, "");
    Start();
    for (const char* host : {"a/b", "a b", "a\r\nX: y"}) {
        ASSERT_TRUE(mConnector->SocketConnect("op", host, 443, &mRecorder));
        EXPECT_EQ(mRecorder.Next(), Status(host::kSocketNameNotFound));
    }
}

}  // namespace zem_connector
