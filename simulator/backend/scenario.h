#pragma once

#include <string>
#include <vector>

namespace simulator::backend {

/// How the backend answers one request.
enum class ScenarioKind {
    kOk,
    /// A valid certificate that expires after `Scenario::parameter` days.
    kExpires,
    /// An error with the HTTP status `Scenario::parameter`.
    kRefuse,
    /// The connection is closed after the request's header.
    kCloseEarly,
    /// The connection is closed after the interim response.
    kCloseAfterInterim,
    /// No byte is ever sent.
    kSilent,
    /// A valid response in many small segments.
    kPieces,
    /// The final response without an interim one.
    kNoInterim,
    kWrongMediaType,
    /// A certificate for another vehicle.
    kWrongName,
    /// A certificate for another key.
    kOtherKey,
    /// An expired certificate.
    kExpired,
    /// A chain to an untrusted root.
    kUntrustedRoot,
    /// A body that is no protobuf message.
    kGarbage,
    /// Status 200 without a body.
    kEmpty,
    /// A status line without a number.
    kBrokenStatus,
};

struct Scenario {
    ScenarioKind kind = ScenarioKind::kOk;
    int parameter = 0;
    /// As given on the command line.
    std::string name = "ok";
};

/// The scenarios that `ParseScenarios` knows, with the name of the parameter ("refuse:STATUS").
std::vector<std::string> KnownScenarios();

/// The same as a help text.
std::string ScenarioHelp();

/// Parses a comma-separated list; empty for an empty text. Throws
/// std::invalid_argument if one is unknown.
std::vector<Scenario> ParseScenarios(const std::string& list);

/// Yields one scenario for each request; the last one repeats. An empty list stands for `kOk`.
class ScenarioSequence {
public:
    explicit ScenarioSequence(std::vector<Scenario> scenarios);

    const Scenario& Next();

private:
    std::vector<Scenario> mScenarios;
    std::size_t mNext = 0;
};

}  // namespace simulator::backend
