#pragma once

#include <memory>

#include "store/store_database.h"

namespace orv::sec::crypto {

/// Makes the library of this process work on an open store instead of the one that it would open
/// itself: the next `initCryptoLib` takes it, `cleanupCryptoLib` closes it, and later openings are
/// not affected. `kInvalidState` while the library is open. Any thread.
void ProvideLibraryContents(std::shared_ptr<StoreDatabase> contents);

}  // namespace orv::sec::crypto
