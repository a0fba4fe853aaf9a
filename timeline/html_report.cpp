#include "timeline/html_report.h"

#include <nlohmann/json.hpp>

#include "timeline/report_files.h"

namespace timeline {

namespace {

std::string EscapedText(std::string_view text) {
    std::string escaped;
    for (const char character : text) {
        switch (character) {
            case '&':
                escaped += "&amp;";
                break;
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            default:
                escaped += character;
        }
    }
    return escaped;
}

/// Appends the template up to the mark, and moves behind the mark.
void AppendUpTo(std::string& report, std::string_view& rest, std::string_view mark) {
    const std::size_t at = rest.find(mark);
    report += rest.substr(0, at);
    rest.remove_prefix(at + mark.size());
}

}  // namespace

std::string_view LanesScript() {
    return kLanesScript;
}

std::string_view LanesStyle() {
    return kLanesStyle;
}

std::string JsonForHtml(const nlohmann::json& json) {
    const std::string text = json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    std::string escaped;
    escaped.reserve(text.size());
    // Outside of strings JSON has none of these.
    for (const char character : text) {
        switch (character) {
            case '<':
                escaped += "\\u003c";
                break;
            case '>':
                escaped += "\\u003e";
                break;
            case '&':
                escaped += "\\u0026";
                break;
            default:
                escaped += character;
        }
    }
    return escaped;
}

std::string HtmlReport(std::string_view title, const nlohmann::json& data) {
    std::string report;
    std::string_view rest = kReportTemplate;
    AppendUpTo(report, rest, "@TITLE@");
    report += EscapedText(title);
    AppendUpTo(report, rest, "@STYLE@");
    report += kLanesStyle;
    AppendUpTo(report, rest, "@HEADING@");
    report += EscapedText(title);
    AppendUpTo(report, rest, "@DATA@");
    report += JsonForHtml(data);
    AppendUpTo(report, rest, "@SCRIPT@");
    report += kLanesScript;
    report += rest;
    return report;
}

}  // namespace timeline
