#pragma once

#include <string>

namespace orv::sec::crypto::common {

/// Handle of a key pair in the store that made it (`ICryptoStore::makeKeyId`). Immutable; it holds
/// no key material, and what it names need not exist. Other stores refuse it.
class IKeyID {
public:
    virtual ~IKeyID() = default;

    /// The id that the handle was made for.
    virtual const std::string& getId() const = 0;
};

}  // namespace orv::sec::crypto::common
