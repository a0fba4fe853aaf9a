#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include <orv/sec/crypto/i_crypto_service_provider.h>

#include "certificate_zoo/certificate_zoo.h"

/// Secure stores as a factory and a client leave them. What the library refuses on the way is a
/// std::runtime_error.
namespace testing_support {

/// Makes a store with a bundle of roots and, where there is one, the unit's base pair.
void ProvisionStore(const std::string& directory, const std::string& rootsPem,
                    const Family* factory = nullptr);

/// Works on the database behind the library's back; the first columns of its answer, in a row.
std::string ExecuteSql(const std::string& directory, const std::string& sql);

/// Digest of what the store holds; 0 for nothing.
template <typename Bytes>
std::size_t DigestOf(const Bytes& bytes) {
    return std::hash<std::string>()(std::string(bytes.begin(), bytes.end()));
}

/// What the client store holds, as digests: public key and chain of the accepted pair "TIV" and of
/// the pending one "TIV_CSR", and the scratch certificate.
using Picture = std::array<std::size_t, 5>;
enum Part : std::size_t { kAcceptedKey, kAcceptedChain, kPendingKey, kPendingChain, kScratch };
/// Expects any digest.
inline constexpr std::size_t kAny = 1;
bool Fits(const Picture& picture, const Picture& expected);

class ClientStore {
public:
    /// The store is made if there is none.
    ClientStore(orv::sec::crypto::ICryptoServiceProvider& provider, const Family& backend);

    void Generate(const char* id) const;
    /// Makes a pair and has the backend certify it; `traits` without a key.
    void Enrol(const char* id, const CertificateTraits& traits = {}) const;
    void Remove(const char* id) const;
    /// Leaves a certified accepted pair, and no pending one.
    void Reset() const;
    /// Prepares what an operation stores: a chain for the key of a pair.
    void NewChain(const char* id);
    /// Throws unless each private key opens and each chain belongs to its key.
    Picture Look() const;

    std::shared_ptr<const orv::sec::crypto::common::IKeyID> Key(const char* id) const;
    std::shared_ptr<const orv::sec::crypto::common::ICertID> Scratch() const;

    std::shared_ptr<orv::sec::crypto::store::ITrustStore> mStore;
    orv::sec::crypto::common::ByteVector mChain;

private:
    std::string Certify(const char* id, CertificateTraits traits) const;

    const Family& mBackend;
};

/// An operation that changes the client store.
struct StoreOperation {
    const char* name;
    /// Brings a store after `Reset` to where the operation begins.
    void (*begin)(ClientStore& store);
    orv::sec::crypto::common::CryptoResultCode (*run)(const ClientStore& store);
    /// Changes what the store held before to what the operation must leave.
    void (*expect)(const ClientStore& store, Picture& picture);
};

extern const std::array<StoreOperation, 5> kStoreOperations;

}  // namespace testing_support
