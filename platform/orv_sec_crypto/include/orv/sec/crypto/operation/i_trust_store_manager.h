#pragma once

#include <memory>
#include <string>

#include <orv/sec/crypto/common/crypto_result_code.h>
#include <orv/sec/crypto/common/error_or_object_result.h>
#include <orv/sec/crypto/store/i_koru_store.h>
#include <orv/sec/crypto/store/i_trust_store.h>

namespace orv::sec::crypto::operation {

/// Makes and finds stores. Any thread may call it. The caller shares ownership of the stores, which
/// may outlive it. Failures are `kInvalidArgument` for an empty name or the key-management store's,
/// `kTooLarge` for one over 128 bytes, `kStorageError` for a store that can't be accessed,
/// `kInvalidState` once the library is cleaned up.
class ITrustStoreManager {
public:
    virtual ~ITrustStoreManager() = default;

    /// Makes the store of this name, durably; `kAlreadyExists` when there is one.
    virtual common::ErrorOrObjectResult<common::CryptoResultCode,
                                        std::shared_ptr<store::ITrustStore>>
    createTrustStore(const std::string& name) = 0;

    /// Finds an existing store; `kNotFound` when there is none.
    virtual common::ErrorOrObjectResult<common::CryptoResultCode,
                                        std::shared_ptr<store::ITrustStore>>
    lookupTrustStore(const std::string& name) = 0;

    /// The key-management store; `kNotFound` on a unit that was never provisioned.
    virtual common::ErrorOrObjectResult<common::CryptoResultCode,
                                        std::shared_ptr<store::IKORUStore>>
    lookupForKORUStore() = 0;
};

}  // namespace orv::sec::crypto::operation
