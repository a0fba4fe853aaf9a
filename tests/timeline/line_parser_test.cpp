#include "timeline/line_parser.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "timeline/timeline_event.h"

namespace timeline {

namespace {

const std::string kText = "VintrelClientFsm: State transition to FsmStateWaitVin";
const std::string kEntry = "info    VT " + kText;
/// 2026-11-22T00:00:00Z.
constexpr std::int64_t kNotAfter = 1795305600;

LineParser::Options Options() {
    // A zone two hours ahead of UTC.
    return {[](std::int64_t wallSeconds) { return wallSeconds - 7200; }, kNotAfter};
}

struct Form {
    std::string line;
    std::string moment;
};

TEST(LineParserTest, ReadsTheTimeAndTheTextOfEachForm) {
    const std::string journal = "unit vintrel-client[812]: ";
    const std::vector<Form> forms{
        {"2026-11-21T17:02:03.009Z " + kEntry, "2026-11-21T17:02:03.009Z"},
        {"Nov 21 17:02:03 " + journal + kEntry, "2026-11-21T15:02:03.000Z"},
        {"Nov 21 17:02:03.009876 " + journal + kEntry, "2026-11-21T15:02:03.009Z"},
        {"Nov  2 17:02:03 " + journal + kEntry, "2026-11-02T15:02:03.000Z"},
        {"Dec 31 23:59:59 " + journal + kEntry, "2025-12-31T21:59:59.000Z"},
        {"Jan  1 02:00:00 " + journal + kEntry, "2026-01-01T00:00:00.000Z"},
        {"2026-11-21T17:02:03+0100 " + journal + kEntry, "2026-11-21T16:02:03.000Z"},
        {"2026-11-21T17:02:03-01:30 " + journal + kEntry, "2026-11-21T18:32:03.000Z"},
        {"2024-02-29T17:02:03.009876+0000 " + journal + kEntry, "2024-02-29T17:02:03.009Z"},
        {"[   12.345678] " + journal + kEntry, "[12.345 s after start]"},
        {"[   12.345678] unit vintrel-client: " + kEntry, "[12.345 s after start]"},
        {kEntry, "(no time)"},
        // As dlt-convert -a and dlt-receive -a print it.
        {"74 2026/11/21 17:02:03.009000     100074 074 ECU1 VT-- MAIN log info V 1 [" + kText + "]",
         "2026-11-21T15:02:03.009Z"},
        {"2026/11/21 17:02:03.009000 ---------- 074 ECU1 VT-- MAIN log info V 1 [" + kText + "]",
         "2026-11-21T15:02:03.009Z"},
    };
    for (const Form& form : forms) {
        SCOPED_TRACE(form.line);
        LineParser parser(Options());
        const LogLine line = parser.Parse(form.line, true);
        EXPECT_EQ(line.kind, LineKind::kEntry);
        EXPECT_EQ(line.severity, Severity::kInfo);
        EXPECT_EQ(line.text, kText);
        EXPECT_EQ(ToText({0, line.time, line.base}), form.moment);
        EXPECT_EQ(line.processId, form.line.find("[812]") == std::string::npos ? 0U : 812U);
    }
}

struct Odd {
    std::string line;
    LineKind kind;
    bool whole{true};
};

TEST(LineParserTest, TheServiceMayLogUnderAnotherName) {
    LineParser::Options options = Options();
    options.applicationId = "CERT2";
    LineParser parser(options);
    EXPECT_EQ(parser.Parse("info    CERT2 text", true).text, "text");
    EXPECT_EQ(
        parser.Parse("2026/11/21 17:02:03.0 1 0 ECU1 CERT MAIN log info V 1 [text]", true).text,
        "text");
    EXPECT_EQ(parser.Parse(kEntry, true).kind, LineKind::kForeign);
}

TEST(LineParserTest, TellsWhatIsNoEntry) {
    const std::string time = "2026-11-21T17:02:03.009Z ";
    const std::string dlt = "7 2026/11/21 17:02:03.009000 100074 074 ECU1 ";
    const std::vector<Odd> lines{
        {"", LineKind::kForeign},
        {"    MIIFSwYJKoZIhvcNAQcCoIIFPDCC", LineKind::kForeign},
        {"Nov 21 17:02:03 unit kernel: usb 1-1: new device", LineKind::kForeign},
        {"Nov 21 17:02:03 unit other[3]: info    XY text", LineKind::kForeign},
        {"2026-13-41T17:02:03.009Z " + kEntry, LineKind::kForeign},
        {dlt + "SYS- JOUR log info V 1 [text]", LineKind::kForeign},
        {dlt + "VT-- MAIN control response N 1 [service(3842), ok]", LineKind::kForeign},
        {"99999999999999999999999 2026/11/21", LineKind::kForeign},
        {"-- Boot 5f1c8d2b7c1e4b0e9e54f6d3a2b1c0d9 --", LineKind::kBoot},
        {time, LineKind::kTruncated},
        {"2026-11-2", LineKind::kTruncated},
        {time + "warn   ", LineKind::kTruncated},
        {time + "warn    V", LineKind::kTruncated},
        {time + kEntry, LineKind::kTruncated, false},
        {time + kEntry + std::string(3, '\0'), LineKind::kTruncated},
        {dlt + "VT-- MAIN log inf", LineKind::kTruncated},
        {time + "info    VT Vintrel" + time + kEntry, LineKind::kInterleaved},
        {dlt + "VT-- MAIN log info V 1 [Vin" + dlt + "VT-- MAIN log info V 1 [text]",
         LineKind::kInterleaved},
    };
    for (const Odd& odd : lines) {
        LineParser parser(Options());
        EXPECT_EQ(parser.Parse(odd.line, odd.whole).kind, odd.kind) << odd.line;
    }
}

TEST(LineParserTest, FurtherLinesBelongToTheEntryBefore) {
    const std::string journal = "Nov 21 17:02:03 unit vintrel-client[812]: ";
    const std::string dlt = "2026/11/21 17:02:03.009000 100074 074 ECU1 VT-- MAIN log info V 1 [";
    const std::vector<std::vector<Odd>> logs{
        {{"2026-11-21T17:02:03.009Z " + kEntry, LineKind::kEntry},
         {"    more", LineKind::kContinuation},
         {"", LineKind::kContinuation},
         {"other", LineKind::kForeign},
         {"    more", LineKind::kForeign}},
        {{journal + kEntry, LineKind::kEntry}, {journal + "    more", LineKind::kContinuation}},
        {{dlt + "first", LineKind::kEntry},
         {"second", LineKind::kContinuation},
         {"third]", LineKind::kContinuation},
         {"other", LineKind::kForeign}},
    };
    for (const auto& log : logs) {
        LineParser parser(Options());
        for (const Odd& odd : log) {
            EXPECT_EQ(parser.Parse(odd.line, true).kind, odd.kind) << odd.line;
        }
    }
}

}  // namespace

}  // namespace timeline
