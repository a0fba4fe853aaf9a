#pragma once

#include <string>
#include <vector>

namespace simulator::backend {

/// What the backend does with one request.
enum class ScenarioKind {
    kOk,
    /// A good certificate that ends after `Scenario::parameter` days.
    kExpires,
    /// An error with the HTTP status `Scenario::parameter`.
    kRefuse,
    /// The connection is closed once the header is there.
    kCloseEarly,
    /// The connection is closed behind the interim response.
    kCloseAfterInterim,
    /// No byte is ever sent.
    kSilent,
    /// A good answer in many small pieces.
    kPieces,
    /// The final status straight after the header.
    kNoInterim,
    kWrongMediaType,
    /// A certificate for another vehicle.
    kWrongName,
    /// A certificate for another key.
    kOtherKey,
    /// A certificate that has ended.
    kExpired,
    /// A chain to a root that the unit does not know.
    kUntrustedRoot,
    /// A body that is no message.
    kGarbage,
    /// Status 200 without a body.
    kEmpty,
    /// A status line without a number.
    kBrokenStatus,
};

struct Scenario {
    ScenarioKind kind = ScenarioKind::kOk;
    int parameter = 0;
    /// As on the command line.
    std::string name = "ok";
};

/// The scenarios that `ParseScenarios` knows, with the name of the parameter ("refuse:STATUS").
std::vector<std::string> KnownScenarios();

/// The same for a person to read.
std::string ScenarioHelp();

/// A list of scenarios, separated by commas; empty for an empty text. `std::invalid_argument` when
/// one is not known.
std::vector<Scenario> ParseScenarios(const std::string& list);

/// Gives one scenario for each request; the last one repeats. All are `kOk` for an empty list.
class ScenarioSequence {
public:
    explicit ScenarioSequence(std::vector<Scenario> scenarios);

    const Scenario& Next();

private:
    std::vector<Scenario> mScenarios;
    std::size_t mNext = 0;
};

}  // namespace simulator::backend
