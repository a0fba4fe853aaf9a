#pragma once

#include <memory>
#include <string>

#include "custody/key_custody.h"
#include "custody/pkcs11_token.h"

namespace orv::sec::crypto {

/// Keys that are generated in a PKCS #11 token and stay there. A blob is a version byte and the
/// key's CKA_ID, 16 random bytes; it is the same in every row. A key is made before its row is
/// inserted and destroyed after its row is deleted, so a crash leaves keys without rows, never rows
/// without keys.
class TokenCustody final : public KeyCustody {
public:
    TokenCustody(const std::string& directory, host::TokenKeyStorage settings);
    ~TokenCustody() override;

    std::string TraceOfStore() const override;
    void Make() override;
    bool IsLocal() const override { return false; }
    void Load(bool holdsKeys) override;
    bool IsLoaded() const override { return true; }
    StoredKey Generate(const std::string& row) override;
    StoredKey Adopt(const std::string& row, EVP_PKEY& key) override;
    PkeyPtr Open(const std::string& row, const StoredKey& stored) override;
    common::ByteVector Rebind(const StoredKey& stored, const std::string& row,
                              const std::string& newRow) override;
    void CheckDroppable() override;
    void Forget(const common::ByteVector& blob) override;
    void Sweep(const std::vector<common::ByteVector>& blobs) override;

private:
    // Shared with the keys that `Open` has returned.
    const std::shared_ptr<Pkcs11Token> mToken;
};

}  // namespace orv::sec::crypto
