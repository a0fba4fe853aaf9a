#include "client_store/client_store.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include <openssl/pem.h>
#include <sqlite3.h>

#include "orv_sec_crypto/store_administration.h"

namespace testing_support {

using orv::sec::crypto::common::ByteVector;
using orv::sec::crypto::common::CryptoResultCode;
using orv::sec::crypto::host::StoreAdministration;
using orv::sec::crypto::store::KeyType;

namespace {

constexpr const char* kAccepted = "TIV";
constexpr const char* kPending = "TIV_CSR";

void Require(bool condition, const std::string& what) {
    if (!condition) {
        throw std::runtime_error(what);
    }
}

void Require(CryptoResultCode code, const std::string& what) {
    Require(code == CryptoResultCode::kSuccess,
            what + " gives " + std::to_string(static_cast<int>(code)));
}

template <typename Result>
std::size_t DigestOfLoaded(const Result& result) {
    if (result.GetCode() == CryptoResultCode::kNotFound) {
        return 0;
    }
    Require(result.GetCode(), "loading");
    return DigestOf(result.GetObject());
}

bool IsCertifiedBy(const ByteVector& publicKey, const ByteVector& chain) {
    const std::unique_ptr<BIO, decltype(&BIO_free)> pem(
        BIO_new_mem_buf(chain.data(), static_cast<int>(chain.size())), BIO_free);
    const std::unique_ptr<X509, decltype(&X509_free)> leaf(
        PEM_read_bio_X509(pem.get(), nullptr, nullptr, nullptr), X509_free);
    return leaf != nullptr &&
           EVP_PKEY_eq(X509_get0_pubkey(leaf.get()), ReadPublicKey(publicKey).get()) == 1;
}

}  // namespace

void ProvisionStore(const std::string& directory, const std::string& rootsPem,
                    const Family* factory) {
    std::unique_ptr<StoreAdministration> administration;
    auto result = StoreAdministration::CreateOrOpen(directory, administration);
    if (result) {
        result = administration->StoreCertificate("PRODUCT_PKI_ROOT_CERT", rootsPem);
    }
    if (result && factory != nullptr) {
        result = administration->ImportKeyPair("ECU_BASE_CERT", PrivateKeyPem(factory->leaf.key),
                                               factory->ChainPem());
    }
    Require(static_cast<bool>(result), result.message);
}

std::string ExecuteSql(const std::string& directory, const std::string& sql) {
    sqlite3* database = nullptr;
    std::string answer;
    const auto take = [](void* text, int /*columns*/, char** values, char** /*names*/) {
        *static_cast<std::string*>(text) += values[0];
        return 0;
    };
    const bool isDone = sqlite3_open((directory + "/store.db").c_str(), &database) == SQLITE_OK &&
                        sqlite3_exec(database, sql.c_str(), take, &answer, nullptr) == SQLITE_OK;
    const std::string error = sqlite3_errmsg(database);
    sqlite3_close(database);
    Require(isDone, sql + ": " + error);
    return answer;
}

bool Fits(const Picture& picture, const Picture& expected) {
    return std::equal(picture.begin(), picture.end(), expected.begin(),
                      [](std::size_t digest, std::size_t wanted) {
                          return wanted == kAny ? digest != 0 : digest == wanted;
                      });
}

ClientStore::ClientStore(orv::sec::crypto::ICryptoServiceProvider& provider, const Family& backend)
    : mBackend(backend) {
    const auto manager = provider.createTrustStoreManager().GetObject();
    mStore = manager->lookupTrustStore("TIV").GetObject();
    if (mStore == nullptr) {
        mStore = manager->createTrustStore("TIV").GetObject();
    }
    Require(mStore != nullptr, "there is no client store");
}

std::shared_ptr<const orv::sec::crypto::common::IKeyID> ClientStore::Key(const char* id) const {
    return mStore->makeKeyId(id).GetObject();
}

std::shared_ptr<const orv::sec::crypto::common::ICertID> ClientStore::Scratch() const {
    return mStore->makeCertId("TIV_TMP").GetObject();
}

void ClientStore::Generate(const char* id) const {
    Require(mStore->generateKeyPair(Key(id), KeyType::kEcP256), "generateKeyPair");
}

void ClientStore::Enrol(const char* id, const CertificateTraits& traits) const {
    Generate(id);
    const std::string chain = Certify(id, traits);
    Require(mStore->storeCertificateForKeyPair(Key(id), {chain.begin(), chain.end()}),
            "storeCertificateForKeyPair");
}

void ClientStore::Remove(const char* id) const {
    if (mStore->checkKeyId(Key(id)) == 0) {
        Require(mStore->deleteKeyPair(Key(id)), "deleteKeyPair");
    }
}

void ClientStore::Reset() const {
    Remove(kPending);
    if (mStore->checkKeyId(Key(kAccepted)) != 0) {
        Enrol(kAccepted);
    }
}

std::string ClientStore::Certify(const char* id, CertificateTraits traits) const {
    traits.key = ReadPublicKey(mStore->loadPublicKey(Key(id)).GetObject());
    return PemOf({IssuedBy(mBackend.intermediate, traits), mBackend.intermediate});
}

void ClientStore::NewChain(const char* id) {
    const std::string chain = Certify(id, {});
    mChain.assign(chain.begin(), chain.end());
}

Picture ClientStore::Look() const {
    Picture picture{};
    picture[kScratch] = DigestOfLoaded(mStore->loadCertificate(Scratch()));
    for (const auto& [id, part] : {std::pair(kAccepted, kAcceptedKey), {kPending, kPendingKey}}) {
        const auto key = Key(id);
        const auto code = static_cast<CryptoResultCode>(mStore->checkKeyId(key));
        if (code == CryptoResultCode::kNotFound) {
            continue;
        }
        Require(code, "checkKeyId");
        const auto der = mStore->loadPublicKey(key);
        const auto chain = mStore->loadCertificateForKeyPair(key);
        picture[part] = DigestOfLoaded(der);
        picture[part + 1] = DigestOfLoaded(chain);
        const auto format = orv::sec::crypto::store::CsrFormat::kPkcs10;
        Require(mStore->generateCsr("name", format, key).GetCode(), "generateCsr");
        Require(picture[part + 1] == 0 || IsCertifiedBy(der.GetObject(), chain.GetObject()),
                "the certificate is not one of its key");
    }
    return picture;
}

const std::array<StoreOperation, 5> kStoreOperations{{
    {"generateKeyPair", [](ClientStore&) {},
     [](const ClientStore& store) {
         return store.mStore->generateKeyPair(store.Key(kPending), KeyType::kEcP256);
     },
     [](const ClientStore&, Picture& picture) { picture[kPendingKey] = kAny; }},
    {"storeCertificateForKeyPair",
     [](ClientStore& store) {
         store.Generate(kPending);
         store.NewChain(kPending);
     },
     [](const ClientStore& store) {
         return store.mStore->storeCertificateForKeyPair(store.Key(kPending), store.mChain);
     },
     [](const ClientStore& store, Picture& picture) {
         picture[kPendingChain] = DigestOf(store.mChain);
     }},
    {"moveKeyPair",
     [](ClientStore& store) {
         store.Enrol(kPending);
         store.Remove(kAccepted);
     },
     [](const ClientStore& store) {
         return store.mStore->moveKeyPair(store.Key(kPending), store.Key(kAccepted));
     },
     [](const ClientStore&, Picture& picture) {
         picture = {picture[kPendingKey], picture[kPendingChain], 0, 0, picture[kScratch]};
     }},
    {"deleteKeyPair", [](ClientStore&) {},
     [](const ClientStore& store) { return store.mStore->deleteKeyPair(store.Key(kAccepted)); },
     [](const ClientStore&, Picture& picture) {
         picture[kAcceptedKey] = picture[kAcceptedChain] = 0;
     }},
    {"storeCertificate", [](ClientStore& store) { store.NewChain(kAccepted); },
     [](const ClientStore& store) {
         return store.mStore->storeCertificate(store.Scratch(), store.mChain);
     },
     [](const ClientStore& store, Picture& picture) {
         picture[kScratch] = DigestOf(store.mChain);
     }},
}};

}  // namespace testing_support
