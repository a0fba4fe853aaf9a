#pragma once

#include <memory>

#include "store/store_database.h"

namespace orv::sec::crypto {

/// Has the library of this process work on an open store, in the place of the one that it would
/// open itself: `initCryptoLib` takes it, `cleanupCryptoLib` closes it, and from then on things are
/// as ever. `kInvalidState` while the library is open. Any thread.
void ProvideLibraryContents(std::shared_ptr<StoreDatabase> contents);

}  // namespace orv::sec::crypto
