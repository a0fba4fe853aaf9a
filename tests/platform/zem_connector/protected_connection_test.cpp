#include <cstdlib>
#include <functional>
#include <optional>
#include <vector>

#include <gtest/gtest.h>

#include <zem_connector/zem_connector.h>
#include <zem_connector_host/connector_file.h>
#include <zem_connector_host/socket_status.h>

#include "callback_recorder.h"
#include "scripted_peer.h"
#include "testing/captured_log.h"
#include "testing/event_recorder.h"
#include "testing/files.h"
#include "testing/temporary_directory.h"
#include "testing/waiting.h"

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
constexpr std::size_t kMoreThanAnyBuffer = std::size_t{64} * 1024 * 1024;

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
        EXPECT_EQ(mConnector->Start(), SessionStatus::kStarted);
    }

    /// The status of an attempt to connect.
    std::string Connect(unsigned short port, const std::string& host = "127.0.0.1") {
        if (!mConnector) {
            Start();
        }
        EXPECT_TRUE(mConnector->SocketConnect("op", host, port, &mRecorder));
        std::string status = mRecorder.Next();
        mClient = Stream(mRecorder.Socket());
        return status;
    }

    void ExpectConnected(const ScriptedPeer& peer) {
        EXPECT_EQ(Connect(peer.Port()), Status(host::kSocketConnected));
    }

    void ExpectEcho() const { EXPECT_EQ(mClient.Send("hello").Read(5), "hello"); }

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

using Talk = std::function<void(TlsServer&)>;

/// Says back what comes, to the client's proper end.
void Echo(TlsServer& server) {
    for (std::string text = server.Read(65536); !text.empty(); text = server.Read(65536)) {
        server.Write(text);
    }
    server.End();
}

void Flood(TlsServer& server) {
    while (server.Write(std::string(65536, 'x'))) {
    }
}

ScriptedPeer::Script TalkBy(const Identity& identity, const Talk& talk, int maxVersion = 0) {
    return [=](const Stream& peer) {
        TlsServer server(peer, identity, maxVersion);
        talk(server);
    };
}

ScriptedPeer::Script EchoBy(const Identity& identity, int maxVersion = 0) {
    return TalkBy(identity, Echo, maxVersion);
}

/// A peer that the client trusts.
class TrustedPeer : public ScriptedPeer {
public:
    explicit TrustedPeer(const Talk& talk, int maxVersion = 0)
        : ScriptedPeer(TalkBy(ServerFamily::Get().server, talk, maxVersion)) {}
};

/// A further connection of the same connector, whose peer echoes.
class Witness {
public:
    explicit Witness(ZemConnector& connector) {
        EXPECT_TRUE(connector.SocketConnect("op", "127.0.0.1", mPeer.Port(), &mRecorder));
        mRecorder.Next();
        mClient = Stream(mRecorder.Socket());
    }

    void RoundTrip() const { EXPECT_EQ(mClient.Send("x").Read(1), "x"); }

private:
    TrustedPeer mPeer{Echo};
    CallbackRecorder mRecorder;
    Stream mClient;
};

/// Sends until the connector takes no more, and returns what went.
///
/// All connections share the connector's one thread: in the time of some round trips on another one
/// it would have taken something from this one, too, if it were not to hold it back.
std::string SendUntilHeldBack(const Stream& client, const Witness& witness) {
    constexpr int kRoundTrips = 20;
    std::string sent;
    for (int idle = 0; idle < kRoundTrips && sent.size() < kMoreThanAnyBuffer;) {
        std::string part = std::to_string(sent.size());
        part.resize(8192, '-');
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
    std::optional<ProxyType> proxy{};
};

ScriptedPeer::Script Answer(const std::string& bytes) {
    return [bytes](const Stream& peer) {
        peer.Read(3);
        peer.Send(bytes).EndSending().Read(65536);
    };
}

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
        {"NoTls", Answer("HTTP/1.1 400 Bad Request\r\n\r\n"), kHandshake, "wrong version number"},
        {"EndsAtOnce", [](const Stream& peer) { peer.Read(100); }, kHandshake, ""},
        {"KeepsSilent", [](const Stream& peer) { peer.Read(65536); }, host::kSocketTimeout,
         "the TLS handshake not ended in time"},
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

/// What a proxy says first.
std::vector<RefusalCase> RefusalsByProxies() {
    const auto http = [](const char* name, const std::string& answer, const char* log) {
        return RefusalCase{name, Answer(answer),  host::kSocketProxyFailed, log,
                           {},   ProxyType::kHttp};
    };
    const auto socks = [](const char* name, const std::string& answer, SocketStatus status,
                          const char* log = "") {
        return RefusalCase{name, Answer(answer), status, log, {}, ProxyType::kSocks5};
    };
    return {
        http("Refused", "HTTP/1.1 407 \r\n\r\n", "refused with 407"),
        http("TooLong", "HTTP/1.1 200 " + std::string(100000, 'x'), "makes no sense"),
        http("Cut", "HTTP/1.1 200 OK\r\n", "End of file"),
        http("NoHttp", "SSH-2.0-x\r\n\r\n", "makes no sense"),
        socks("NoMethod", "\5\xff", host::kSocketProxyFailed, "refused with 255"),
        socks("WrongMethod", "\5\2", host::kSocketProxyFailed, "makes no sense"),
        socks("Reply5", std::string("\5\0\5\5", 4), host::kSocketRefused, "refused with 5"),
        socks("Reply4", std::string("\5\0\5\4", 4), host::kSocketUnreachable),
        socks("Reply6", std::string("\5\0\5\6", 4), host::kSocketTimeout),
        socks("Reply2", std::string("\5\0\5\2", 4), host::kSocketProxyFailed),
    };
}

TEST_F(ProtectedConnectionTest, ARefusedOrRefusingPeerGivesAStatusAndNoSocket) {
    const std::string anchors = mTls.trustAnchors;
    std::vector<RefusalCase> cases = Refusals();
    for (const RefusalCase& c : RefusalsByProxies()) {
        cases.push_back(c);
    }
    for (const RefusalCase& c : cases) {
        SCOPED_TRACE(c.name);
        ScriptedPeer peer(c.peer);
        mTls = c.settings;
        mTls.trustAnchors = mTls.trustAnchors.empty() ? anchors : mTls.trustAnchors;
        if (c.proxy) {
            mProxy = ProxySettings{*c.proxy, "127.0.0.1", peer.Port(), "", ""};
        }
        mFile.connectTimeout = c.name == std::string("KeepsSilent") ? std::chrono::milliseconds(100)
                                                                    : std::chrono::minutes(10);
        mConnector.reset();
        mLog.Clear();
        EXPECT_EQ(Connect(peer.Port()), Status(c.status));
        EXPECT_FALSE(mClient.IsOpen());
        EXPECT_EQ(
            mLog.Count("Can't connect to 127.0.0.1:" + std::to_string(peer.Port()) + " for op"),
            1U);
        EXPECT_GE(mLog.Count(c.log), 1U);
    }
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
        const TrustedPeer peer(Echo, c.maxVersion);
        ExpectConnected(peer);
        EXPECT_EQ(mLog.Count(" by " + c.version), 1U);
        ExpectEcho();
    }
}

TEST_F(ProtectedConnectionTest, AnIpV6PeerIsReachedToo) {
    if (testing_support::ReadFile("/proc/net/if_inet6").find(" lo\n") == std::string::npos) {
        GTEST_SKIP() << "no IPv6 here";
    }
    const ScriptedPeer peer(EchoBy(ServerFamily::Get().server), "::1");
    EXPECT_EQ(Connect(peer.Port(), "::1"), Status(host::kSocketConnected));
}

TEST_F(ProtectedConnectionTest, WhoIsSlowHoldsTheOthersBackAndNothingIsLost) {
    const TrustedPeer peer(Echo);
    ExpectConnected(peer);
    // As long as we do not read, the echo stands still, and then what is on its way to it.
    const std::string sent = SendUntilHeldBack(mClient, Witness(*mConnector));
    EXPECT_LT(sent.size(), kMoreThanAnyBuffer);
    EXPECT_TRUE(mClient.Read(sent.size()) == sent);
}

TEST_F(ProtectedConnectionTest, TheEndOfTheStreamComesAndACutOneIsNoticed) {
    for (const bool proper : {true, false}) {
        const TrustedPeer peer([proper](TlsServer& server) {
            server.Write("answer");
            if (proper) {
                server.End();
            }
        });
        ExpectConnected(peer);
        EXPECT_EQ(mClient.ReadToEnd(), "answer");
        EXPECT_TRUE(proper || mLog.WaitFor("may lack its end: the connection ended in the middle"));
        EXPECT_EQ(mLog.Count("may lack its end"), proper ? 0U : 1U);
    }
}

TEST_F(ProtectedConnectionTest, AClientThatEndsItsDirectionStillGetsTheAnswer) {
    for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
        const TrustedPeer peer(
            [](TlsServer& server) {
                server.Write("got " + server.ReadToEnd());
                server.End();
            },
            version);
        ExpectConnected(peer);
        EXPECT_EQ(mClient.Send("request").EndSending().ReadToEnd(), "got request");
    }
}

TEST_F(ProtectedConnectionTest, WhatAClientSentBeforeItClosedArrives) {
    testing_support::EventRecorder seen;
    ScriptedPeer peer([&seen](const Stream& client) {
        TlsServer server(client, ServerFamily::Get().server);
        const std::string text = server.ReadToEnd();
        // Nobody listens any more, so the connection goes, whether we end our direction or not.
        seen.Add(client.Read(1).empty() ? text : "still open");
    });
    ExpectConnected(peer);
    const std::string text(100000, 'x');
    mClient.Send(text);
    mClient.Close();
    EXPECT_TRUE(seen.Next() == text);
}

TEST_F(ProtectedConnectionTest, APeerThatNeverTakesItIsWaitedForWithinALimit) {
    Gate done;
    const TrustedPeer peer([&done](TlsServer&) { done.Pass(); });
    mFile.closeTimeout = std::chrono::milliseconds(0);
    ExpectConnected(peer);
    SendUntilHeldBack(mClient, Witness(*mConnector));
    mClient.Close();
    EXPECT_TRUE(mLog.WaitFor("did not take all that the client had sent"));
    done.Open();
}

TEST_F(ProtectedConnectionTest, APeerThatAnswersWithoutReadingIsHeardNevertheless) {
    Gate done;
    const TrustedPeer peer([&done](TlsServer& server) {
        server.Write("enough");
        server.End();
        done.Pass();
    });
    ExpectConnected(peer);
    EXPECT_EQ(mClient.Send(std::string(100000, 'x')).ReadToEnd(), "enough");
    done.Open();
}

TEST_F(ProtectedConnectionTest, APeerThatHasGoneTakesNoMoreAndRaisesNoSignal) {
    for (const bool resets : {true, false}) {
        ScriptedPeer peer([resets](const Stream& client) {
            TlsServer server(client, ServerFamily::Get().server);
            if (resets) {
                const linger reset{1, 0};
                setsockopt(client.Get(), SOL_SOCKET, SO_LINGER, &reset, sizeof(reset));
            } else {
                server.End();
            }
        });
        ExpectConnected(peer);
        EXPECT_EQ(mClient.ReadToEnd(), "");
        const std::string text(65536, 'x');
        while (send(mClient.Get(), text.data(), text.size(), MSG_NOSIGNAL) > 0) {
        }
    }
}

TEST_F(ProtectedConnectionTest, NoPeerHarmsTheOthersOrHoldsUpTheEnd) {
    TcpListener silent;
    mFile.operations["proxied"].proxy =
        ProxySettings{ProxyType::kSocks5, "127.0.0.1", silent.Port(), "", ""};
    const TrustedPeer flooding(Flood);
    ExpectConnected(flooding);
    const Stream flooded = std::move(mClient);
    EXPECT_EQ(flooded.Read(1000000), std::string(1000000, 'x'));
    CallbackRecorder waiting;
    std::vector<Stream> trickling;
    for (const char* const operation : {"op", "proxied"}) {
        ASSERT_TRUE(mConnector->SocketConnect(operation, "127.0.0.1", silent.Port(), &waiting));
        trickling.push_back(silent.Accept());
        EXPECT_EQ(trickling.back().Read(1).size(), 1U);
    }
    trickling.front().Send("\x16");
    const TrustedPeer good(Echo);
    ExpectConnected(good);
    ExpectEcho();

    mConnector->Stop();
    EXPECT_EQ(mClient.ReadToEnd(), "");
    EXPECT_NE(flooded.ReadToEnd(), "");
    EXPECT_EQ(mLog.Count("2 protected connections end with the session"), 1U);
    mConnector.reset();
    EXPECT_EQ(waiting.Waiting(), 0U);
}

/// One request that a proxy expects, and what it says to that.
struct Exchange {
    std::string request;
    std::string answer;
};

void Converse(const Stream& client, const std::vector<Exchange>& exchanges) {
    for (const Exchange& exchange : exchanges) {
        EXPECT_EQ(client.Read(exchange.request.size()), exchange.request);
        // In pieces, since a stream has no borders.
        for (const char c : exchange.answer) {
            client.Send({&c, 1});
        }
    }
}

const std::string kSocksGranted("\5\0\0\1\0\0\0\0\0\0", 10);

class ProxiedConnectionTest : public ProtectedConnectionTest {
protected:
    void UseProxy(ProxyType type, const ScriptedPeer& proxy, const std::string& user = "") {
        mProxy = ProxySettings{type, "127.0.0.1", proxy.Port(), user, user.empty() ? "" : "secret"};
    }

    /// Names are the proxy's to look up.
    void ExpectConnectedToBackend() {
        mConnector.reset();
        EXPECT_EQ(Connect(443, kServerName), Status(host::kSocketConnected));
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
        ScriptedPeer proxy([&c](const Stream& client) {
            Converse(client, c.exchanges);
            TlsServer server(client, ServerFamily::Get().server);
            Echo(server);
        });
        UseProxy(c.type, proxy, c.user);
        ExpectConnectedToBackend();
        ExpectEcho();
    }
}

TEST_F(ProxiedConnectionTest, InClearThePeersFirstBytesAreNotLost) {
    mInClear = true;
    ScriptedPeer proxy(
        [](const Stream& client) { client.Send("HTTP/1.1 200 OK\r\n\r\nhello").Read(65536); });
    UseProxy(ProxyType::kHttp, proxy);
    ExpectConnectedToBackend();
    EXPECT_EQ(mClient.Read(5), "hello");
}

TEST_F(ProxiedConnectionTest, ATargetThatIsNoHostIsNotToldToTheProxy) {
    ScriptedPeer proxy([](const Stream&) { ADD_FAILURE() << "connected"; });
    UseProxy(ProxyType::kHttp, proxy);
    Start();
    for (const char* host : {"a/b", "a b", "a\r\nX: y"}) {
        ASSERT_TRUE(mConnector->SocketConnect("op", host, 443, &mRecorder));
        EXPECT_EQ(mRecorder.Next(), Status(host::kSocketNameNotFound));
    }
}

}  // namespace zem_connector
