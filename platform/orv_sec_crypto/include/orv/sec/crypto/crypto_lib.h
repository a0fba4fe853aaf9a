#pragma once

#include <memory>

#include <orv/sec/crypto/common/crypto_result_code.h>
#include <orv/sec/crypto/common/error_or_object_result.h>
#include <orv/sec/crypto/i_crypto_service_provider.h>

namespace orv::sec::crypto {

/// Opens the library for this process and gives its provider. To be called once, and again only
/// after `cleanupCryptoLib`; `kInvalidState` otherwise. `kStorageError` or `kIntegrityError` when
/// the secure store can't be opened, is lost, or is in use by another process. The process leaves
/// no core dump from here on. Not to be called from two threads at once, nor together with
/// `cleanupCryptoLib`.
common::ErrorOrObjectResult<common::CryptoResultCode, std::shared_ptr<ICryptoServiceProvider>>
initCryptoLib();

/// Closes the library. Objects of it that are still held stay safe to release; their operations
/// fail with `kInvalidState`. `kInvalidState` when the library is not open.
common::CryptoResultCode cleanupCryptoLib();

}  // namespace orv::sec::crypto
