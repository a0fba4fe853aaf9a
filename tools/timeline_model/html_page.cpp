#include "tools/timeline_model/html_page.h"

#include <nlohmann/json.hpp>

#include "tools/timeline_model/page_files.h"

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
void AppendUpTo(std::string& page, std::string_view& rest, std::string_view mark) {
    const std::size_t at = rest.find(mark);
    page += rest.substr(0, at);
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

std::string HtmlPage(std::string_view title, const nlohmann::json& data) {
    std::string page;
    std::string_view rest = kPageTemplate;
    AppendUpTo(page, rest, "@TITLE@");
    page += EscapedText(title);
    AppendUpTo(page, rest, "@STYLE@");
    page += kLanesStyle;
    AppendUpTo(page, rest, "@HEADING@");
    page += EscapedText(title);
    AppendUpTo(page, rest, "@DATA@");
    page += JsonForHtml(data);
    AppendUpTo(page, rest, "@SCRIPT@");
    page += kLanesScript;
    page += rest;
    return page;
}

}  // namespace timeline
