#pragma once

#include <string>

namespace orv::sec::crypto::common {

/// Handle of a certificate in the store that made it (`ICryptoStore::makeCertId`). Immutable; what
/// it names need not exist. Other stores refuse it.
class ICertID {
public:
    virtual ~ICertID() = default;

    /// The id that the handle was made for.
    virtual const std::string& getId() const = 0;
};

}  // namespace orv::sec::crypto::common
