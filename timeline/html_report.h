#pragma once

#include <string>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

namespace timeline {

// Any thread may call these functions.

/// The lanes' ES module (report/lanes.js): draws the JSON of `TimelineStore` and of events.
std::string_view LanesScript();
/// The lanes' style (report/lanes.css), for light and dark.
std::string_view LanesStyle();

/// JSON that may stand in a `<script>` element: no text in it can end the element, whatever a log
/// holds. Bytes that are no UTF-8 become U+FFFD.
std::string JsonForHtml(const nlohmann::json& json);

/// The report as one HTML file, which needs neither a network nor a server.
/// @param title what the report is about, as text
/// @param data  members of `TimelineStore::ToJson`, "counts" (`LineCounts`) and "notes" (of
/// `Notes`)
std::string HtmlReport(std::string_view title, const nlohmann::json& data);

}  // namespace timeline
