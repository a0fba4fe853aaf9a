#pragma once

#include <string>

namespace immobilizerclient {

/// Receiver of what an immobilizer client learns. Called on library threads, or within
/// GetImmobilizerVin on the caller's.
class ImmobilizerCallbackIf {
public:
    virtual ~ImmobilizerCallbackIf() = default;

    /// The answer to one query; an empty VIN reports a failure.
    virtual void ImmobilizerVinReceived(const std::string& vin) = 0;

    /// The immobilizer service came or went.
    virtual void ConnectionStateNotification(bool connected) = 0;
};

}  // namespace immobilizerclient
