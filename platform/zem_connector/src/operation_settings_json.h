#pragma once

#include <map>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include <zem_connector_host/operation_settings.h>

namespace zem_connector::host {

/// The operations' entries of the connector's file. Throws std::runtime_error with a text for the
/// log on unusable values; unknown keys are named in `warnings`.
std::map<std::string, OperationSettings> ReadOperations(const nlohmann::json& object,
                                                        std::vector<std::string>& warnings);

/// An operation's entry as JSON.
nlohmann::json JsonOf(const OperationSettings& settings);

}  // namespace zem_connector::host
