#pragma once

#include <memory>
#include <string>

#include "custody/key_custody.h"
#include "custody/wrapping_key.h"

namespace orv::sec::crypto {

/// Keys stored in the database as PKCS #8, encrypted under a wrapping key and each bound to its
/// row.
class WrappingKeyCustody final : public KeyCustody {
public:
    explicit WrappingKeyCustody(WrappingKeyPlace place);

    std::string TraceOfStore() const override;
    void Make() override;
    bool IsLocal() const override { return mPlace.tcti.empty(); }
    void Load(bool holdsKeys) override;
    bool IsLoaded() const override { return mKey != nullptr; }
    StoredKey Generate(const std::string& row) override;
    StoredKey Adopt(const std::string& row, EVP_PKEY& key) override;
    PkeyPtr Open(const std::string& row, const StoredKey& stored) override;
    common::ByteVector Rebind(const StoredKey& stored, const std::string& row,
                              const std::string& newRow) override;
    void CheckDroppable() override {}
    void Forget(const common::ByteVector& blob) override;
    void Sweep(const std::vector<common::ByteVector>& blobs) override;

private:
    const WrappingKey& RequireKey();
    common::ByteVector Wrap(const std::string& row, const EVP_PKEY& key);

    const WrappingKeyPlace mPlace;
    // Null until it is loaded, which may be late: an administrator may create it meanwhile.
    std::unique_ptr<WrappingKey> mKey;
};

}  // namespace orv::sec::crypto
