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

constexpr const char* kHttp = "Received URL missing port number. Default HTTP port used: 80";
constexpr const char* kHttps = "Received URL missing port number. Default HTTPS port used: 443";
constexpr const char* kNoScheme = "URL parsing failed! Protocol not found!";
constexpr const char* kNoHost = "URL parsing failed! Domain not found!";
constexpr const char* kNoPort = "URL parsing failed! Missing port number and invalid protocol!";

std::vector<std::string> NoNumber(const std::string& port) {
    return {"URL parsing failed! Not able to parse port number: '" + port + "'",
            "GetUrlData: exception:stoi"};
}

TEST(Urls, AreSplitOrRefusedWithAReason) {
    const UrlCase rows[] = {
        {"https://backend:8443/api/x?y=1", "backend", 8443, "/api/x?y=1", {}},
        {"xhttp://backend", "backend", 80, "/", {kHttp}},
        {"https://backend/x", "backend", 443, "/x", {kHttps}},
        {"ftp://backend:21/", "backend", 21, "/", {}},
        {"http:///x", "", 80, "/x", {kHttp}},
        {"http://a: 65535x/y", "a", 65535, "/y", {}},
        {"http://a/b:8080", "a/b", 8080, "/b:8080", {}},
        {"backend:80/x", "", 0, "", {kNoScheme}},
        {"http://", "", 0, "", {kNoHost}},
        {"http://:80/x", "", 0, "", {kNoHost}},
        {"HTTP://backend", "backend", 0, "/", {kNoPort}},
        {"http://a:0/", "a", 0, "/", {"Invalid port number: '0'"}},
        {"http://a:65536/x", "a", 0, "/x", {"Invalid port number: '65536'"}},
        {"http://a:-1/", "a", 0, "/", {"Invalid port number: '-1'"}},
        {"http://a:/", "a", 0, "/", NoNumber("")},
        {"http://a:99999999999", "a", 0, "/", NoNumber("99999999999")},
        {"http://a/b?u=https://c", "a/b?u=https", 0, "/b?u=https://c", NoNumber("//c")},
    };
    for (const UrlCase& row : rows) {
        SCOPED_TRACE(row.url);
        const testing_support::CapturedLog log;
        UrlData data;
        const bool good = GetUrlData(row.url, data);
        EXPECT_EQ(good, row.port != 0);
        EXPECT_EQ(data.host, row.host);
        EXPECT_EQ(data.port, row.port);
        EXPECT_EQ(data.path, row.path);
        EXPECT_EQ(log.Lines().size(), row.lines.size());
        EXPECT_EQ(log.Lines(good ? 'I' : 'E'), row.lines);
    }
}

}  // namespace vintrel
