// vintrel-timeline: shows the log of a service from the field as a report or as text.

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "timeline/explain_printer.h"
#include "timeline/html_report.h"
#include "timeline/log_reader.h"
#include "timeline/timeline_store.h"

namespace {

constexpr int kBadUseStatus = 2;
constexpr std::size_t kReadSize = std::size_t{1} << 16U;
const std::string kStandardInput = "-";

const char* const kDescription =
    "Shows what happened in a service's logs: the states of each machine over time, triggers,\n"
    "decisions, retries and outcomes.\n";

const char* const kFooter =
    "\nRead are the service's own console log, what journalctl prints (-o short, short-precise,\n"
    "short-iso, short-iso-precise, short-monotonic, cat) and DLT as text (dlt-convert -a,\n"
    "dlt-receive -a). Lines of other programs, cut and interleaved ones are passed over and\n"
    "counted. Several files are read as one log, in the given order.\n"
    "\n"
    "Exit status: 0 done; with --explain, the last pass did not fail\n"
    "             1 with --explain: the last pass failed or was cut off\n"
    "             2 wrong arguments, or a file that cannot be read or written\n"
    "             3 with --explain: the log does not tell how the last pass ended\n"
    "\n"
    "Examples:\n"
    "  tools/timeline vintrel-client.log                 writes timeline.html\n"
    "  journalctl -u vintrel-client | tools/timeline --explain -\n";

struct Settings {
    std::vector<std::string> logs;
    std::string output = "timeline.html";
    bool explain{false};
    bool utc{false};
    std::string application = timeline::LineParser::Options{}.applicationId;
};

class FileFailure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// What the clock of this machine's time zone means, as `LineParser::Options::toUtc`.
std::int64_t LocalToUtc(std::int64_t wallSeconds) {
    const std::time_t shown = wallSeconds;
    std::tm parts{};
    gmtime_r(&shown, &parts);
    parts.tm_isdst = -1;
    return std::mktime(&parts);
}

/// When the newest of the logs was written last; now, for standard input.
std::int64_t LastWritten(const std::vector<std::string>& logs) {
    std::int64_t newest = 0;
    for (const std::string& log : logs) {
        std::int64_t written = std::time(nullptr);
        if (log != kStandardInput) {
            std::error_code error;
            const auto time = std::filesystem::last_write_time(log, error);
            const auto age = std::filesystem::file_time_type::clock::now() - time;
            written -= error ? 0 : std::chrono::duration_cast<std::chrono::seconds>(age).count();
        }
        newest = std::max(newest, written);
    }
    return newest;
}

void FeedStream(std::istream& input, const std::string& name, timeline::LogReader& reader) {
    std::vector<char> buffer(kReadSize);
    while (input.read(buffer.data(), static_cast<std::streamsize>(buffer.size())) ||
           input.gcount() > 0) {
        reader.Feed({buffer.data(), static_cast<std::size_t>(input.gcount())});
    }
    if (input.bad() || !input.eof()) {
        throw FileFailure("Cannot read " + name);
    }
    reader.EndFile();
}

void FeedLog(const std::string& log, timeline::LogReader& reader) {
    if (log == kStandardInput) {
        FeedStream(std::cin, "the standard input", reader);
        return;
    }
    std::error_code error;
    if (std::filesystem::is_directory(log, error)) {
        throw FileFailure("Cannot read " + log + ": it is a directory");
    }
    std::ifstream input(log, std::ios::binary);
    if (!input) {
        throw FileFailure("Cannot open " + log);
    }
    FeedStream(input, log, reader);
}

timeline::LineParser::Options ParserOptions(const Settings& settings) {
    timeline::LineParser::Options options;
    if (!settings.utc) {
        options.toUtc = LocalToUtc;
    }
    options.applicationId = settings.application;
    options.notAfter = LastWritten(settings.logs);
    return options;
}

void FeedAll(const Settings& settings, timeline::LogReader& reader) {
    for (const std::string& log : settings.logs) {
        FeedLog(log, reader);
    }
    reader.Finish();
}

int Explain(const Settings& settings) {
    timeline::ExplainPrinter printer(std::cout);
    timeline::LogReader reader(ParserOptions(settings),
                               [&](const timeline::Event& event) { printer.Print(event); });
    FeedAll(settings, reader);
    printer.PrintEnd(reader.GetInterpreter());
    if (!std::cout.flush()) {
        throw FileFailure("Cannot write to the standard output");
    }
    return timeline::ExitStatus(reader.GetInterpreter());
}

int Draw(const Settings& settings) {
    timeline::TimelineStore store;
    timeline::LogReader reader(ParserOptions(settings),
                               [&](const timeline::Event& event) { store.Add(event); });
    FeedAll(settings, reader);

    nlohmann::json data = store.ToJson();
    data["counts"] = reader.GetInterpreter().GetCounts();
    data["notes"] = timeline::Notes(reader.GetInterpreter());
    std::string title;
    for (const std::string& log : settings.logs) {
        title += title.empty() ? "" : ", ";
        title += log == kStandardInput ? "standard input"
                                       : std::filesystem::path(log).filename().string();
    }
    std::ofstream output(settings.output, std::ios::binary | std::ios::trunc);
    output << timeline::HtmlReport(title, data);
    if (!output.flush()) {
        throw FileFailure("Cannot write " + settings.output);
    }
    for (const std::string& note : timeline::Notes(reader.GetInterpreter())) {
        std::cout << "note: " << note << '\n';
    }
    std::cout << "Written: " << settings.output << '\n';
    return 0;
}

int RunTimeline(int argc, const char* const* argv) {
    Settings settings;
    CLI::App app(kDescription, "tools/timeline");
    app.footer(kFooter);
    app.add_option("LOG", settings.logs, "Logs to read; - is the standard input")->required();
    app.add_option("-o,--output", settings.output, "The report to write")->capture_default_str();
    app.add_flag("-e,--explain", settings.explain,
                 "Print text instead: each pass in a line, with what triggered it,\n"
                 "what was decided and why, attempts, outcome and duration");
    app.add_flag("--utc", settings.utc,
                 "Times without a zone (journal, DLT) are UTC, not local time");
    app.add_option("--application", settings.application,
                   "Application id that the service logs under")
        ->capture_default_str();
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : kBadUseStatus;
    }
    return settings.explain ? Explain(settings) : Draw(settings);
}

}  // namespace

int main(int argc, char* argv[]) {
    std::ios::sync_with_stdio(false);
    try {
        return RunTimeline(argc, argv);
    } catch (const std::exception& failure) {
        std::cerr << failure.what() << '\n';
        return kBadUseStatus;
    }
}
