#include "info_service.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include <boost/beast/http/status.hpp>
#include <nlohmann/json.hpp>

#include <service_access/bounded_json.h>
#include <service_access/service_names.h>

namespace service_access {

namespace {

using boost::beast::http::status;

constexpr std::string_view kPrefix = "/services/";
constexpr std::string_view kSuffix = "/info";
constexpr std::size_t kMaxFields = 32;
constexpr unsigned kIdField = 0;
constexpr unsigned kVinField = 5;

InfoAnswer Refusal(status reason) {
    return {static_cast<unsigned>(reason), {}};
}

InfoAnswer Records(nlohmann::json items) {
    const nlohmann::json document{{"items", std::move(items)}};
    return {static_cast<unsigned>(status::ok), FormatJson(document)};
}

/// The name in "/services/<name>/info"; empty if the path is another one.
std::string ServiceName(std::string_view path) {
    if (path.size() <= kPrefix.size() + kSuffix.size() ||
        path.substr(0, kPrefix.size()) != kPrefix ||
        path.substr(path.size() - kSuffix.size()) != kSuffix) {
        return {};
    }
    return std::string(path.substr(kPrefix.size(), path.size() - kPrefix.size() - kSuffix.size()));
}

/// The comma-separated numbers of the query's "fields", or nothing if they are malformed.
std::optional<std::set<unsigned>> Fields(std::string_view query) {
    constexpr std::string_view kKey = "fields=";
    const auto begin = query.find(kKey);
    if (begin == std::string_view::npos) {
        return std::nullopt;
    }
    auto list = query.substr(begin + kKey.size());
    list = list.substr(0, list.find('&'));
    std::set<unsigned> fields;
    while (true) {
        unsigned field = 0;
        const auto* const end = list.data() + list.size();
        const auto [stop, error] = std::from_chars(list.data(), end, field);
        if (error != std::errc() || fields.size() >= kMaxFields) {
            return std::nullopt;
        }
        fields.insert(field);
        if (stop == end) {
            return fields;
        }
        if (*stop != ',') {
            return std::nullopt;
        }
        list.remove_prefix(static_cast<std::size_t>(stop - list.data()) + 1);
    }
}

}  // namespace

InfoService::InfoService() : mKnown{kClampControlService, kImmobilizerService} {}

bool InfoService::SetAvailable(const std::string& name, bool available) {
    mKnown.insert(name);
    return available ? mAvailable.insert(name).second : mAvailable.erase(name) != 0;
}

void InfoService::ReportVin(std::optional<std::string> vin) {
    mImmobilizer = Vin{std::move(vin)};
}

void InfoService::ReportAnswer(InfoAnswer answer) {
    mImmobilizer = std::move(answer);
}

void InfoService::ReportNothing() {
    mImmobilizer = Silence{};
}

std::optional<InfoAnswer> InfoService::Answer(std::string_view target) const {
    const auto mark = std::min(target.find('?'), target.size());
    const auto name = ServiceName(target.substr(0, mark));
    if (mKnown.count(name) == 0) {
        return Refusal(status::not_found);
    }
    if (mAvailable.count(name) == 0) {
        return Refusal(status::service_unavailable);
    }
    const auto fields = Fields(target.substr(mark));
    if (!fields) {
        return Refusal(status::bad_request);
    }
    return name == kImmobilizerService ? AnswerImmobilizer(*fields)
                                       : Records(nlohmann::json::array());
}

std::optional<InfoAnswer> InfoService::AnswerImmobilizer(const std::set<unsigned>& fields) const {
    if (const auto* const answer = std::get_if<InfoAnswer>(&mImmobilizer)) {
        return *answer;
    }
    const auto* const vin = std::get_if<Vin>(&mImmobilizer);
    if (vin == nullptr) {
        return std::nullopt;
    }
    auto item = nlohmann::json::object();
    if (fields.count(kIdField) != 0) {
        item["id"] = kImmobilizerService;
    }
    if (fields.count(kVinField) != 0 && vin->text) {
        item["vehicleIdentificationNumber"] = *vin->text;
    }
    return Records(nlohmann::json::array({std::move(item)}));
}

}  // namespace service_access
