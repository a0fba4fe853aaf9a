#include <stdexcept>

#include <nlohmann/json.hpp>

#include <lumoobjects_LUMO/immobilizer_service.h>
#include <service_access/bounded_json.h>
#include <service_access/service_names.h>

namespace lumoobjects_LUMO {

namespace {

constexpr char kVinKey[] = "vehicleIdentificationNumber";

}  // namespace

void ImmobilizerService::InfoDescriptor::setQueryOptions(std::vector<INFO_FIELDS> fields,
                                                         QUERY_OPTION option) {
    mFields = std::move(fields);
    mOption = option;
}

std::string ImmobilizerService::InfoDescriptor::toQuery() const {
    std::string query = "fields=";
    const char* separator = "";
    for (const auto field : mFields) {
        query += separator + std::to_string(static_cast<std::uint32_t>(field));
        separator = ",";
    }
    return query + "&options=" + std::to_string(static_cast<std::uint32_t>(mOption));
}

std::shared_ptr<const ImmobilizerService::Info> ImmobilizerService::Info::parseFirst(
    const std::string& body) {
    const auto document = service_access::ParseBoundedJson(body);
    const auto& items = document.at("items");
    if (!items.is_array()) {
        throw std::invalid_argument("items is no array");
    }
    if (items.empty()) {
        return nullptr;
    }
    const auto& item = items.front();
    if (!item.is_object()) {
        throw std::invalid_argument("item is no object");
    }
    const auto vin = item.find(kVinKey);
    if (vin == item.end() || vin->is_null()) {
        return std::make_shared<Info>(std::nullopt);
    }
    return std::make_shared<Info>(vin->get<std::string>());
}

std::string ImmobilizerService::getServiceName() {
    return service_access::kImmobilizerService;
}

}  // namespace lumoobjects_LUMO
