#include "client/url_data.h"

#include <gtest/gtest.h>

#include "testing/captured_log.h"

namespace vintrel {

struct UrlCase {
    std::string url;
    /// What is written even on a failure; port 0 means a failure.
    std::string host;
    std::uint16_t port;
    std::string path;
    std::vector<std::string> lines;
};

class Urls : public testing::TestWithParam<UrlCase> {};

TEST_P(Urls, AreSplitOrRefusedWithAReason) {
    const testing_support::CapturedLog log;
    UrlData data;
    const bool good = GetUrlData(GetParam().url, data);
    EXPECT_EQ(good, GetParam().port != 0);
    EXPECT_EQ(data.host, GetParam().host);
    EXPECT_EQ(data.port, GetParam().port);
    EXPECT_EQ(data.path, GetParam().path);
    const auto lines = log.Lines();
    ASSERT_EQ(lines.size(), GetParam().lines.size());
    for (std::size_t i = 0; i < lines.size(); ++i) {
        using qel_logging::EQELLogLevel;
        EXPECT_EQ(lines[i].level, good ? EQELLogLevel::kInfo : EQELLogLevel::kError);
        EXPECT_EQ(lines[i].text, GetParam().lines[i]);
    }
}

constexpr const char* kHttp = "Received URL missing port number. Default HTTP port used: 80";
constexpr const char* kHttps = "Received URL missing port number. Default HTTPS port used: 443";
constexpr const char* kNoScheme = "URL parsing failed! Protocol not found!";
constexpr const char* kNoHost = "URL parsing failed! Domain not found!";
constexpr const char* kNoPort = "URL parsing failed! Missing port number and invalid protocol!";

std::vector<std::string> NoNumber(const std::string& port) {
    return {"URL parsing failed! Not able to parse port number: '" + port + "'",
            "GetUrlData: exception:stoi"};
}

INSTANTIATE_TEST_SUITE_P(
    Table, Urls,
    testing::Values(UrlCase{"https://backend:8443/api/x?y=1", "backend", 8443, "/api/x?y=1", {}},
                    UrlCase{"xhttp://backend", "backend", 80, "/", {kHttp}},
                    UrlCase{"https://backend/x", "backend", 443, "/x", {kHttps}},
                    UrlCase{"ftp://backend:21/", "backend", 21, "/", {}},
                    UrlCase{"http:///x", "", 80, "/x", {kHttp}},
                    UrlCase{"http://a: 65535x/y", "a", 65535, "/y", {}},
                    UrlCase{"http://a/b:8080", "a/b", 8080, "/b:8080", {}},
                    UrlCase{"backend:80/x", "", 0, "", {kNoScheme}},
                    UrlCase{"http://", "", 0, "", {kNoHost}},
                    UrlCase{"http://:80/x", "", 0, "", {kNoHost}},
                    UrlCase{"HTTP://backend", "backend", 0, "/", {kNoPort}},
                    UrlCase{"http://a:0/", "a", 0, "/", {"Invalid port number: '0'"}},
                    UrlCase{"http://a:65536/x", "a", 0, "/x", {"Invalid port number: '65536'"}},
                    UrlCase{"http://a:-1/", "a", 0, "/", {"Invalid port number: '-1'"}},
                    UrlCase{"http://a:/", "a", 0, "/", NoNumber("")},
                    UrlCase{"http://a:99999999999", "a", 0, "/", NoNumber("99999999999")},
                    UrlCase{"http://a/b?u=https://c", "a/b?u=https", 0, "/b?u=https://c",
                            NoNumber("//c")}));

}  // namespace vintrel
