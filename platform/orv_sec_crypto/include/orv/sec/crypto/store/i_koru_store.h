#pragma once

#include <orv/sec/crypto/store/i_crypto_store.h>

namespace orv::sec::crypto::store {

/// The unit's key-management store: the keys and certificates that the factory provisioned. Read
/// only: operations that would change it fail with `kAccessDenied`.
class IKORUStore : public ICryptoStore {};

}  // namespace orv::sec::crypto::store
