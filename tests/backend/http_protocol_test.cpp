#include "backend/http_protocol.h"

#include <algorithm>
#include <stdexcept>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace nuro_common {

namespace {

HttpProtocol WithAllOptions() {
    HttpProtocol http;
    http.SetOption(HttpOption::Path, "/p");
    http.SetOption(HttpOption::Host, "h");
    http.SetOption(HttpOption::ContentType, "t");
    http.SetOption(HttpOption::Accept, "a");
    http.SetOption(HttpOption::Authorization, "u");
    http.SetOption(HttpOption::Connection, "close");
    http.SetOption(HttpOption::Payload, std::string("b\0y", 3));
    return http;
}

}  // namespace

TEST(HttpProtocol, APutIsTheHeaderAloneUnlessItExpectsNoInterimResponse) {
    HttpProtocol http = WithAllOptions();
    EXPECT_EQ(http.PUT(),
              "PUT /p HTTP/1.1\r\nHost: h\r\nContent-Type: t\r\nAccept: a\r\n"
              "Expect: 100-continue\r\nConnection: close\r\nContent-Length: 3\r\n\r\n");
    EXPECT_EQ(http.RequestHeader(), http.PUT());

    http.SetOption(HttpOption::NoExpectContinue);
    const std::string header =
        "PUT /p HTTP/1.1\r\nHost: h\r\nContent-Type: t\r\nAccept: a\r\n"
        "Connection: close\r\nContent-Length: 3\r\n\r\n";
    EXPECT_EQ(http.PUT(), header + std::string("b\0y", 3));
    EXPECT_EQ(http.RequestHeader(), header);
}

TEST(HttpProtocol, PostAndGetAreAuthorizedAndCarryThePayload) {
    HttpProtocol http = WithAllOptions();
    const std::string rest =
        " /p HTTP/1.1\r\nHost: h\r\nContent-Type: t\r\nAccept: a\r\nAuthorization: u\r\n"
        "Connection: close\r\nContent-Length: 3\r\n\r\n";
    EXPECT_EQ(http.POST(), "POST" + rest + std::string("b\0y", 3));
    EXPECT_EQ(http.GET(), "GET" + rest + std::string("b\0y", 3));
    EXPECT_EQ(http.RequestHeader(), "GET" + rest);
}

TEST(HttpProtocol, TheContentLengthIsWhatWasSetOrElseThePayloads) {
    HttpProtocol http;
    http.SetOption(HttpOption::Payload, std::string(12345, 'x'));
    EXPECT_NE(http.PUT().find("\r\nContent-Length: 12345\r\n"), std::string::npos);
    http.SetOption(HttpOption::ContentLength, "7");
    EXPECT_NE(http.PUT().find("\r\nContent-Length: 7\r\n"), std::string::npos);
    http.SetOption(HttpOption::ContentLength, "");
    EXPECT_EQ(http.PUT().find("Content-Length"), std::string::npos);
}

TEST(HttpProtocol, OptionsOfTheOtherKindAreIgnoredAndDefaultsComeBack) {
    HttpProtocol http = WithAllOptions();
    const std::string before = http.PUT();
    http.SetOption(HttpOption::Path);
    http.SetOption(HttpOption::NoExpectContinue, "yes");
    http.SetOption(static_cast<HttpOption>(11), "x");
    EXPECT_EQ(http.PUT(), before);
    http.SetOption(HttpOption::NoExpectContinue);
    http.ParseResponse("HTTP/1.1 200 OK\r\n\r\n");
    http.SetDefaultValues();
    EXPECT_EQ(http.ResponseStatusCode(), 200);
    EXPECT_EQ(http.PUT(),
              "PUT  HTTP/1.1\r\nContent-Type: text/html\r\nExpect: 100-continue\r\n"
              "Content-Length: 0\r\n\r\n");
}

TEST(HttpProtocol, TheStatusIsReadFromTheFirstLine) {
    const std::pair<const char*, int> responses[] = {
        {"HTTP/1.1 200\r\n\r\n", 200},
        {"HTTP/1.1 20x OK\r\n\r\n", 255},
        {"HTTP/1.1 -10 OK\r\n\r\n", 255},
        {"HTTP/1.1 2005 x\r\n\r\n", 200},
        {"HTTP/1.1 40499999999999\r\n\r\n", 404},
        {"HTTP/1.1  200 OK\r\n\r\n", 255},
        // The blank is sought in all the data, behind the header, too.
        {"HTTP/1.1\r\n\r\nbody 404", 404},
        {"", 4095},
        {"\r\n\r", 4095},
        {"HTTP/1.1 200 OK\r\nContent-Length: 5", 4095},
        {"\r\n\r\n 200", 0},
        {"ICY 200 OK\r\n\r\n", 0}};
    for (const auto& [data, status] : responses) {
        HttpProtocol http;
        http.ParseResponse(data);
        EXPECT_EQ(http.ResponseStatusCode(), status) << data;
    }
}

TEST(HttpProtocol, OnlyTheKnownStatusesAreTaken) {
    const std::vector<std::pair<int, int>> known{{100, 101}, {200, 206}, {301, 305},
                                                 {307, 307}, {400, 417}, {500, 505}};
    HttpProtocol http;
    for (int status = 100; status < 1000; ++status) {
        http.ParseResponse("HTTP/1.1 " + std::to_string(status) + " x\r\n\r\n");
        const bool isKnown = std::any_of(known.begin(), known.end(), [status](const auto& range) {
            return status >= range.first && status <= range.second;
        });
        EXPECT_EQ(http.ResponseStatusCode(), isKnown ? status : 255);
    }
}

TEST(HttpProtocol, AStatusThatIsNoNumberThrows) {
    HttpProtocol http;
    EXPECT_THROW(http.ParseResponse("HTTP/1.1 abc\r\n\r\n"), std::invalid_argument);
    EXPECT_THROW(http.ParseResponse("HTTP/1.1\r\n\r\n"), std::invalid_argument);
    EXPECT_THROW(http.ParseResponse("HTTP\r\n\r\n "), std::invalid_argument);
}

TEST(HttpProtocol, TheBodyIsEverythingBehindTheFirstBlankLineAndWhatAParseDoesNotReachStays) {
    HttpProtocol http;
    const auto expect = [&](const std::string& data, int status, const std::string& header,
                            const std::string& payload) {
        http.ParseResponse(data);
        EXPECT_EQ(http.ResponseStatusCode(), status) << data;
        EXPECT_EQ(http.ResponseHeader(), header) << data;
        EXPECT_EQ(http.ResponsePayload(), payload) << data;
    };
    expect("HTTP/1.1 200 OK\r\nX: 5\r\n\r\na\r\n\r\nb", 200, "HTTP/1.1 200 OK\r\nX: 5",
           "a\r\n\r\nb");
    expect("HTTP/1.1 404", HttpProtocol::kStatusIncomplete, "HTTP/1.1 200 OK\r\nX: 5", "");
    expect("HTTP/1.1 200 OK\r\n\r\nab", 200, "HTTP/1.1 200 OK", "ab");
    expect("ICY 404 OK\r\n\r\nab", 200, "ICY 404 OK", "");
    http.SetOption(HttpOption::HeaderOnly);
    expect("HTTP/1.1 201 Created\r\n\r\nab", 201, "HTTP/1.1 201 Created", "");
}

}  // namespace nuro_common
