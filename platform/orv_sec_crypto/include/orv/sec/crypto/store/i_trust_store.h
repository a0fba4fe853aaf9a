#pragma once

#include <orv/sec/crypto/store/i_crypto_store.h>

namespace orv::sec::crypto::store {

/// A named store of an application, made and found by `operation::ITrustStoreManager`. Its
/// contents outlive the object and the process.
class ITrustStore : public ICryptoStore {};

}  // namespace orv::sec::crypto::store
