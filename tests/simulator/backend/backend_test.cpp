#include <map>
#include <optional>
#include <sstream>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <openssl/x509v3.h>
#include <unistd.h>

#include <pki_support/certificates.h>

#include "GenericError_V2.pb.h"
#include "QUBA_CO_KoruVintrelRequest_v1.pb.h"
#include "QUBA_CT_KoruCertificateResponse_v2.pb.h"
#include "certificate_zoo/certificate_zoo.h"
#include "simulator/backend/server.h"
#include "simulator/control/control_client.h"
#include "testing/child_program.h"
#include "testing/stream.h"
#include "testing/temporary_directory.h"
#include "testing/waiting.h"

namespace simulator::backend {

namespace {

using domain::backend::proto::QUBACTKoruCertificateResponseV2;
using nlohmann::json;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using testing_support::CertificateTraits;
using testing_support::ChildProgram;
using testing_support::Family;
using testing_support::Identity;
using testing_support::MakeContainer;
using testing_support::MakeKey;
using testing_support::MakeRequest;
using testing_support::Stream;

constexpr const char* kCommonName = "VNTREL00000000001:C003";
constexpr const char* kOtherName = "VNTREL00000000002:C003";
constexpr const char* kInterim = "HTTP/1.1 100 Continue\r\n\r\n";

struct Response {
    explicit Response(const std::string& text)
        : header(text.substr(0, text.find("\r\n\r\n"))),
          status(text.size() < 12 ? 0 : std::stoi(text.substr(9, 3))) {
        if (header.size() < text.size()) {
            body = text.substr(header.size() + 4);
        }
    }

    std::string Reason() const {
        domain::backend::proto::GenericErrorV2 error;
        EXPECT_THAT(header, HasSubstr("Content-Type: application/GenericError_v2+proto\r\n"));
        EXPECT_TRUE(error.ParseFromString(body));
        EXPECT_FALSE(error.transaction_id().empty());
        return error.error_description();
    }

    std::vector<pki::X509Ptr> Chain(const std::string& more = "") const {
        QUBACTKoruCertificateResponseV2 message;
        EXPECT_TRUE(message.ParseFromString(body));
        return pki_support::ReadCertificates(message.certificate() + more);
    }

    bool LeadsTo(const Identity& root) const {
        return pki_support::FindChainFault(Chain(root.Pem())).empty();
    }

    std::string header;
    int status;
    std::string body;
};

std::string Header(const std::map<std::string, std::string>& changes,
                   const std::string& method = "PUT") {
    std::map<std::string, std::string> fields{
        {"Host", "127.0.0.1"},
        {"Content-Type", kRequestMediaType},
        {"Accept", std::string(kResponseMediaType) + ";" + kErrorMediaType},
        {"Expect", "100-continue"},
        {"Connection", "close"},
        {"Content-Length", "0"}};
    for (const auto& [name, value] : changes) {
        fields[name] = value;
    }
    std::string text = method + " /enrol HTTP/1.1\r\n";
    for (const auto& [name, value] : fields) {
        if (!value.empty()) {
            text.append(name).append(": ").append(value).append("\r\n");
        }
    }
    return text + "\r\n";
}

std::string Header(const std::string& body) {
    return Header({{"Content-Length", std::to_string(body.size())}});
}

std::string SubjectOf(const std::vector<pki::X509Ptr>& chain) {
    return pki_support::CommonName(*X509_get_subject_name(chain.front().get()));
}

/// A backend in a thread of the test, whose factory and product PKI the test holds in its hands.
class BackendTest : public ::testing::Test {
protected:
    BackendTest() {
        Save("factory-root", mFactory.root);
        Save("factory-ca", mFactory.intermediate);
        Save("product-root", mProduct.root);
        Save("product-ca", mProduct.intermediate);
    }

    ~BackendTest() override { Stop(); }

    void Start(const std::string& scenarios = "",
               std::chrono::milliseconds timeLimit = std::chrono::seconds(30)) {
        mService.emplace(pki::LoadPki(mDirectory.Path().string()), std::chrono::hours(24 * 730),
                         std::chrono::system_clock::now);
        mJournal.emplace(mDirectory.File("journal"));
        mServer.emplace(ServerSettings{0, timeLimit}, *mService, *mJournal,
                        ScenarioSequence(ParseScenarios(scenarios)));
        mThread = std::thread([this] { mServer->Run(); });
    }

    void Stop() {
        if (mThread.joinable()) {
            mServer->Stop();
            mThread.join();
        }
    }

    void Save(const std::string& name, const Identity& identity) {
        mDirectory.Write(name + ".pem", identity.Pem());
        mDirectory.Write(name + ".key", testing_support::PrivateKeyPem(identity.key));
    }

    std::string Container(const std::string& payload) {
        return MakeContainer(payload, mFactory.leaf, {mFactory.intermediate});
    }

    std::string Body(const std::string& container) {
        domain::backend::proto::QUBACOKoruVintrelRequestV1 request;
        request.set_activation_reason(7);
        request.set_csr_container(container);
        request.set_operationtypeid("an.operation");
        request.mutable_ecu_capability()->set_diagnostic_address("C003");
        request.mutable_ecu_capability()->set_hw_version("H01");
        request.mutable_ecu_capability()->set_sw_version("0209");
        request.mutable_ecu_capability()->set_part_number("VN035");
        return request.SerializeAsString();
    }

    std::string GoodBody() { return Body(Container(MakeRequest(mKey, kCommonName))); }

    /// Sends the header, takes the interim response, sends the body, reads to the end.
    Response Exchange(const std::string& body) { return Exchange(body, mServer->Port()); }
    static Response Exchange(const std::string& body, int port) {
        const Stream client = Stream::ToPort(static_cast<std::uint16_t>(port));
        EXPECT_EQ(client.Send(Header(body)).Read(25), kInterim);
        return Response(client.Send(body).ReadToEnd());
    }

    Response AnswerTo(const std::string& bytes) {
        return Response(Stream::ToPort(mServer->Port()).Send(bytes).ReadToEnd());
    }

    std::vector<json> Journal() {
        std::vector<json> entries;
        std::istringstream file(mDirectory.Read("journal"));
        for (std::string line; std::getline(file, line);) {
            entries.push_back(json::parse(line));
        }
        return entries;
    }

    testing_support::TemporaryDirectory mDirectory;
    Family mFactory{"Factory", kCommonName};
    Family mProduct{"Product"};
    testing_support::Key mKey = MakeKey();
    std::optional<EnrolmentService> mService;
    std::optional<backend::Journal> mJournal;
    std::optional<Server> mServer;
    std::thread mThread;
};

TEST_F(BackendTest, AGoodRequestGetsAChainThatLeadsToTheProductRoot) {
    Start();
    const std::string container = Container(MakeRequest(mKey, kCommonName));
    const Response response = Exchange(Body(container));
    ASSERT_EQ(response.status, 200);
    EXPECT_THAT(response.header, HasSubstr(std::string("Content-Type: ") + kResponseMediaType));
    EXPECT_THAT(response.header, HasSubstr("Connection: close"));
    EXPECT_THAT(response.header,
                HasSubstr("Content-Length: " + std::to_string(response.body.size())));
    const auto chain = response.Chain();
    ASSERT_EQ(chain.size(), 2U);
    EXPECT_EQ(SubjectOf(chain), kCommonName);
    EXPECT_TRUE(pki_support::HasPublicKey(*chain.front(), *mKey));
    EXPECT_EQ(X509_check_purpose(chain.front().get(), X509_PURPOSE_SSL_CLIENT, 0), 1);
    EXPECT_GT(X509_cmp_current_time(X509_get0_notAfter(chain.front().get())), 0);
    EXPECT_TRUE(response.LeadsTo(mProduct.root));

    const auto journal = Journal();
    ASSERT_EQ(journal.size(), 1U);
    json entry = journal.front();
    EXPECT_THAT(entry["remote"].get<std::string>(), StartsWith("127.0.0.1:"));
    EXPECT_THAT(entry["csr"].get<std::string>(), StartsWith("-----BEGIN CERTIFICATE REQUEST-----"));
    for (const char* varying : {"time", "remote", "transaction_id", "csr"}) {
        EXPECT_FALSE(entry[varying].get<std::string>().empty()) << varying;
        entry.erase(varying);
    }
    EXPECT_GT(entry["duration_ms"].get<double>(), 0.0);
    entry.erase("duration_ms");
    EXPECT_EQ(entry, json({{"method", "PUT"},
                           {"target", "/enrol"},
                           {"media_type", kRequestMediaType},
                           {"accept", std::string(kResponseMediaType) + ";" + kErrorMediaType},
                           {"status", 200},
                           {"outcome", "issued"},
                           {"reason", ""},
                           {"activation_reason", 7},
                           {"operationTypeId", "an.operation"},
                           {"diagnostic_address", "C003"},
                           {"hw_version", "H01"},
                           {"sw_version", "0209"},
                           {"part_number", "VN035"},
                           {"vin", "VNTREL00000000001"},
                           {"container", container},
                           {"issued_chain", pki_support::ToPem(chain)},
                           {"scenario", "ok"}}));
}

TEST_F(BackendTest, ARequestThatDoesNotHoldTogetherIsRefusedWithTheReason) {
    Start();
    const std::string csr = MakeRequest(mKey, kCommonName);
    const auto signedBy = [&](const CertificateTraits& traits) {
        return MakeContainer(csr, IssuedBy(mFactory.intermediate, traits), {mFactory.intermediate});
    };
    const Family foreign("Factory", kCommonName);
    CertificateTraits expired;
    expired.notAfter = std::chrono::system_clock::now() - std::chrono::minutes(1);
    CertificateTraits nameless;
    nameless.commonName = std::nullopt;
    CertificateTraits weak;
    weak.digest = "sha1";
    std::string garbled = Container(csr);
    garbled.replace(garbled.size() / 2, 1, "#");

    struct Row {
        std::string container;
        int status;
        std::string reason;
    };
    const Row rows[] = {
        {"", 400, "no CMS in PEM"},
        {mFactory.leaf.Pem(), 400, "no CMS in PEM"},
        {garbled, 400, "no CMS in PEM"},
        {MakeContainer(csr, foreign.leaf, {foreign.intermediate}), 403, "does not verify"},
        {MakeContainer(csr, mFactory.leaf, {}), 403, "local issuer certificate"},
        {MakeContainer(csr, mFactory.leaf, {mFactory.intermediate}, "sha1"), 403, "hash"},
        {signedBy(weak), 403, "does not verify"},
        {signedBy(expired), 403, "certificate has expired"},
        {signedBy(nameless), 403, "signer is no unit"},
        {Container("something else"), 400, "does not hold a signing request"},
        {Container(csr + "x"), 400, "does not hold a signing request"},
        {Container(MakeRequest(mKey, kCommonName, MakeKey())), 403, "signed by its own key"},
        {Container(MakeRequest(MakeKey("RSA1024"), kCommonName)), 403, "too weak"},
        {Container(MakeRequest(mKey, kOtherName)), 403, "VNTREL00000000002"},
        {Container(MakeRequest(mKey, "VNTREL00000000001:C004")), 403, "C004"},
    };
    for (const Row& row : rows) {
        const Response response = Exchange(Body(row.container));
        EXPECT_EQ(response.status, row.status) << row.reason;
        EXPECT_THAT(response.Reason(), HasSubstr(row.reason));
        EXPECT_EQ(Journal().back()["reason"], response.Reason());
        EXPECT_EQ(Journal().back()["status"], row.status);
        EXPECT_EQ(Journal().back()["issued_chain"], "");
    }
    EXPECT_THAT(Exchange("\xff\xff\xff").Reason(), HasSubstr("no certificate request message"));
    EXPECT_TRUE(Journal().back()["activation_reason"].is_null());
    EXPECT_EQ(Exchange(GoodBody()).status, 200);
}

TEST_F(BackendTest, AHeaderThatIsNoRequestIsAnsweredBeforeTheBody) {
    Start();
    const std::pair<std::string, int> rows[] = {
        {Header({}, "POST"), 405},
        {Header({{"Content-Type", "text/html"}}), 415},
        {Header({{"Content-Length", ""}}), 411},
        {Header({{"Content-Length", "1000000"}}) + std::string(200000, 'x'), 413},
        {Header({{"Content-Length", "minus one"}}), 400},
        {Header({{"Expect", "a miracle"}}), 417},
        {Header({{"X-Padding", std::string(20000, 'x')}}), 431},
        {"\x16\x03\x01 this is no HTTP\r\n\r\n", 400},
    };
    for (const auto& [bytes, status] : rows) {
        const Response response = AnswerTo(bytes);
        EXPECT_EQ(response.status, status);
        EXPECT_THAT(response.Reason(), Not(IsEmpty()));
        EXPECT_EQ(Journal().back()["status"], status);
    }
    const std::string body = GoodBody();
    EXPECT_EQ(
        AnswerTo(Header({{"Expect", ""}, {"Content-Length", std::to_string(body.size())}}) + body)
            .status,
        200);
}

/// The other scenarios are met by whole units, and by the client behind proxies.
TEST_F(BackendTest, AScenarioOfTheCertificateShapesOneRequestAndTheLastRepeats) {
    Start("wrong-name,expired,expires:10,ok");
    const std::string body = GoodBody();
    EXPECT_EQ(SubjectOf(Exchange(body).Chain()), "00000000000000000:C003");
    EXPECT_LT(X509_cmp_current_time(X509_get0_notAfter(Exchange(body).Chain().front().get())), 0);
    int days = 0;
    const auto soon = Exchange(body).Chain();
    ASSERT_EQ(ASN1_TIME_diff(&days, nullptr, nullptr, X509_get0_notAfter(soon.front().get())), 1);
    EXPECT_THAT(days, testing::AnyOf(9, 10));
    for (int count = 0; count < 2; ++count) {
        EXPECT_TRUE(Exchange(body).LeadsTo(mProduct.root));
    }
    EXPECT_EQ(Journal().at(0)["scenario"], "wrong-name");
    EXPECT_EQ(Journal().back()["scenario"], "ok");
}

TEST_F(BackendTest, TruncatedRequestsAreDroppedAndNoted) {
    Start();
    const std::string header = Header(GoodBody());
    EXPECT_EQ(Stream::ToPort(mServer->Port()).EndSending().ReadToEnd(), "");
    EXPECT_EQ(Stream::ToPort(mServer->Port()).Send(header.substr(0, 100)).EndSending().ReadToEnd(),
              "");
    EXPECT_EQ(Stream::ToPort(mServer->Port()).Send(header + "half").EndSending().ReadToEnd(),
              kInterim);
    const auto journal = Journal();
    ASSERT_EQ(journal.size(), 2U);
    for (const json& entry : journal) {
        EXPECT_EQ(entry["outcome"], "aborted");
        EXPECT_EQ(entry["status"], 0);
    }
}

TEST_F(BackendTest, ASlowPeerIsDroppedAtTheTimeLimit) {
    Start("", std::chrono::milliseconds(100));
    EXPECT_EQ(Stream::ToPort(mServer->Port()).Send("PUT /enrol HTTP/1.1\r\n").ReadToEnd(), "");
    // The connection ends before its entry is written; one that comes later finds it there.
    Stream::ToPort(mServer->Port()).Send("GET / HTTP/1.1\r\n\r\n").ReadToEnd();
    ASSERT_FALSE(Journal().empty());
    EXPECT_EQ(Journal().front()["outcome"], "aborted");
}

TEST_F(BackendTest, ManyConnectionsWaitForTheirTurn) {
    Start("", std::chrono::seconds(20));
    std::vector<Stream> idle(80);
    for (Stream& client : idle) {
        client = Stream::ToPort(mServer->Port());
    }
    idle.resize(10);
    EXPECT_EQ(Exchange(GoodBody()).status, 200);
}

TEST(ScenarioTest, UnknownScenariosAndParametersAreRefused) {
    for (const char* list : {"nonsense", "ok:1", "refuse", "refuse:", "refuse:99", "refuse:1000",
                             "refuse:5o3", "expires:-1", "ok,,ok", "OK"}) {
        EXPECT_THROW(ParseScenarios(list), std::invalid_argument) << list;
    }
    EXPECT_EQ(ScenarioSequence(ParseScenarios("")).Next().kind, ScenarioKind::kOk);
}

TEST_F(BackendTest, TheProgramServesUntilItIsTold) {
    for (const int signal : {SIGTERM, SIGINT}) {
        ChildProgram program({"--pki", mDirectory.Path().string(), "--port-file",
                              mDirectory.File("port"), "--journal", mDirectory.File("journal"),
                              "--scenario", "refuse:404", "--control", mDirectory.File("control")});
        const std::string line = program.ReadLine();
        EXPECT_THAT(line, StartsWith("listening on 127.0.0.1:"));
        const std::string port = mDirectory.Read("port");
        EXPECT_EQ(line + "\n", "listening on 127.0.0.1:" + port);

        EXPECT_EQ(Exchange(GoodBody(), std::stoi(port)).status, 404);
        EXPECT_EQ(Journal().back()["vin"], "VNTREL00000000001");

        const auto command = [this](const char* text) {
            return AskControlServer(mDirectory.File("control"), text, testing_support::kHangGuard);
        };
        EXPECT_EQ(command("scenario refuse:503"), "ok");
        EXPECT_EQ(command("scenario refuse:999"),
                  "error: the scenario 'refuse' needs STATUS from 200 to 599");
        EXPECT_THAT(command("status"), HasSubstr(R"("scenario":"refuse:503")"));
        EXPECT_EQ(Exchange(GoodBody(), std::stoi(port)).status, 503);
        program.Kill(signal);
        EXPECT_EQ(program.Wait(), 0);
        EXPECT_NE(::access(mDirectory.File("port").c_str(), F_OK), 0);
    }
    mDirectory.Write("product-ca.key", "no key");
    EXPECT_EQ(ChildProgram({"--pki", mDirectory.Path().string()}).Wait(), 1);
}

}  // namespace

}  // namespace simulator::backend
