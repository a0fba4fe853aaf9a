#include "durability/scenario.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <functional>
#include <memory>
#include <stdexcept>
#include <vector>

#include <openssl/pem.h>
#include <openssl/x509.h>
#include <sqlite3.h>

#include <orv/sec/crypto/crypto_lib.h>

#include "certificates/crypto_api_instance.h"
#include "certificates/hsm.h"
#include "orv_sec_crypto/store_administration.h"

namespace kill_store {

namespace {

using orv::sec::crypto::common::ByteVector;
using orv::sec::crypto::common::CryptoResultCode;
using orv::sec::crypto::host::StoreAdministration;
using orv::sec::crypto::store::ITrustStore;
using testing_support::CertificateTraits;
using testing_support::Family;
using vintrel::Hsm;
using vintrel::StatusCode;

constexpr const char* kVin = "VNTREL00000000001";
constexpr const char* kCommonName = "VNTREL00000000001:C003";
constexpr const char* kAccepted = "TIV";
constexpr const char* kPending = "TIV_CSR";

using KeyHandle = std::shared_ptr<const orv::sec::crypto::common::IKeyID>;

void Require(bool condition, const std::string& what) {
    if (!condition) {
        throw std::runtime_error(what);
    }
}

void Require(CryptoResultCode code, const std::string& what) {
    Require(code == CryptoResultCode::kSuccess,
            what + " gives " + std::to_string(static_cast<int>(code)));
}

template <typename Bytes>
std::size_t DigestOf(const Bytes& bytes) {
    return std::hash<std::string>()(std::string(bytes.begin(), bytes.end()));
}

testing_support::Key PublicKey(const ByteVector& der) {
    const unsigned char* position = der.data();
    return {d2i_PUBKEY(nullptr, &position, static_cast<long>(der.size())), EVP_PKEY_free};
}

std::string ChainFor(const testing_support::Key& key, const Family& backend) {
    CertificateTraits traits;
    traits.commonName = kCommonName;
    traits.key = key;
    return testing_support::PemOf({IssuedBy(backend.intermediate, traits), backend.intermediate});
}

/// What the backend answers to a request.
std::string Answer(const std::vector<std::uint8_t>& csr, const Family& backend) {
    const unsigned char* position = csr.data();
    const std::unique_ptr<X509_REQ, decltype(&X509_REQ_free)> request(
        d2i_X509_REQ(nullptr, &position, static_cast<long>(csr.size())), X509_REQ_free);
    Require(request != nullptr, "GenerateCsr gives no request");
    return ChainFor({X509_REQ_get_pubkey(request.get()), EVP_PKEY_free}, backend);
}

class Store {
public:
    Store() {
        const auto manager =
            vintrel::CryptoApiInstance::GetCryptoApiInstance()->createTrustStoreManager();
        mStore = manager.GetObject()->lookupTrustStore("TIV").GetObject();
        Require(mStore != nullptr, "the store is not there");
    }

    ITrustStore& operator*() const { return *mStore; }
    ITrustStore* operator->() const { return mStore.get(); }

    KeyHandle Key(const char* id) const { return mStore->makeKeyId(id).GetObject(); }

    void Remove(const char* id) const {
        const CryptoResultCode code = mStore->deleteKeyPair(Key(id));
        if (code != CryptoResultCode::kNotFound) {
            Require(code, "deleteKeyPair");
        }
    }

    void Generate(const char* id) const {
        Require(mStore->generateKeyPair(Key(id), orv::sec::crypto::store::KeyType::kEcP256),
                "generateKeyPair");
    }

    ByteVector NewChain(const char* id, const Family& backend) const {
        const std::string chain =
            ChainFor(PublicKey(mStore->loadPublicKey(Key(id)).GetObject()), backend);
        return {chain.begin(), chain.end()};
    }

    Slot Look(const char* id) const {
        const KeyHandle key = Key(id);
        const auto code = static_cast<CryptoResultCode>(mStore->checkKeyId(key));
        if (code == CryptoResultCode::kNotFound) {
            return {};
        }
        Require(code, "checkKeyId");
        const auto publicKey = mStore->loadPublicKey(key);
        Require(publicKey.IsSuccess(), "loadPublicKey fails");
        Require(mStore->generateCsr(kCommonName, orv::sec::crypto::store::CsrFormat::kPkcs10, key)
                    .IsSuccess(),
                "the private key does not open");
        const auto chain = mStore->loadCertificateForKeyPair(key);
        if (chain.GetCode() == CryptoResultCode::kNotFound) {
            return {true, DigestOf(publicKey.GetObject()), 0};
        }
        Require(chain.IsSuccess(), "the chain does not load");
        const std::unique_ptr<BIO, decltype(&BIO_free)> pem(
            BIO_new_mem_buf(chain.GetObject().data(), static_cast<int>(chain.GetObject().size())),
            BIO_free);
        const std::unique_ptr<X509, decltype(&X509_free)> leaf(
            PEM_read_bio_X509(pem.get(), nullptr, nullptr, nullptr), X509_free);
        Require(leaf != nullptr && EVP_PKEY_eq(X509_get0_pubkey(leaf.get()),
                                               PublicKey(publicKey.GetObject()).get()) == 1,
                "the certificate is not one of its key");
        return {true, DigestOf(publicKey.GetObject()), DigestOf(chain.GetObject())};
    }

    Picture Look() const { return {Look(kAccepted), Look(kPending)}; }

private:
    std::shared_ptr<ITrustStore> mStore;
};

void Pass(Hsm& hsm, const Family& backend, Record& record) {
    const std::string chain = Answer(hsm.GenerateCsr(kVin), backend);
    Require(!hsm.CheckTivCertificate(chain, kVin), "CheckTivCertificate refuses the answer");
    record.newChain = DigestOf(chain);
    record.isInstalling = true;
    Require(!hsm.StoreTivCertificateToTrustStore(chain), "StoreTivCertificateToTrustStore fails");
}

void Arm(const Blow& blow) {
    store_faults::Arm(blow.plan);
    if (blow.nanoseconds == 0) {
        return;
    }
    sigevent event{};
    event.sigev_notify = SIGEV_SIGNAL;
    event.sigev_signo = SIGKILL;
    timer_t timer{};
    itimerspec time{};
    time.it_value.tv_sec = blow.nanoseconds / 1'000'000'000;
    time.it_value.tv_nsec = blow.nanoseconds % 1'000'000'000;
    Require(::timer_create(CLOCK_MONOTONIC, &event, &timer) == 0 &&
                ::timer_settime(timer, 0, &time, nullptr) == 0,
            "no timer");
}

/// Does all that comes before the operation, and gives the operation.
std::function<void()> Prepare(Scenario scenario, const Store& store, Hsm& hsm,
                              const Family& backend, Record& record) {
    switch (scenario) {
        case Scenario::kGenerateKeyPair:
            store.Remove(kPending);
            return [&store] { store.Generate(kPending); };
        case Scenario::kStoreCertificateForKeyPair:
        case Scenario::kMoveKeyPair: {
            store.Remove(kPending);
            store.Generate(kPending);
            const ByteVector chain = store.NewChain(kPending, backend);
            record.newChain = DigestOf(chain);
            const auto attach = [&store, chain] {
                Require(store->storeCertificateForKeyPair(store.Key(kPending), chain),
                        "storeCertificateForKeyPair");
            };
            if (scenario == Scenario::kStoreCertificateForKeyPair) {
                return attach;
            }
            attach();
            store.Remove(kAccepted);
            return [&store] {
                Require(store->moveKeyPair(store.Key(kPending), store.Key(kAccepted)),
                        "moveKeyPair");
            };
        }
        case Scenario::kDeleteKeyPair:
            return
                [&store] { Require(store->deleteKeyPair(store.Key(kAccepted)), "deleteKeyPair"); };
        case Scenario::kPass:
            return [&hsm, &backend, &record] { Pass(hsm, backend, record); };
        case Scenario::kClear:
            return [&hsm] {
                Require(!hsm.DeleteTivCertificateFromTrustStore(),
                        "DeleteTivCertificateFromTrustStore fails");
            };
    }
    throw std::logic_error("no such scenario");
}

/// Whether an operation that is over has done what it must.
bool IsDone(Scenario scenario, const Record& record, const Picture& now) {
    const Picture& before = record.before;
    switch (scenario) {
        case Scenario::kGenerateKeyPair:
            return now.accepted == before.accepted && now.pending.isPresent &&
                   now.pending.chain == 0;
        case Scenario::kStoreCertificateForKeyPair:
            return now.accepted == before.accepted &&
                   now.pending == Slot{true, before.pending.key, record.newChain};
        case Scenario::kMoveKeyPair:
            return now == Picture{before.pending, {}};
        case Scenario::kPass:
            return now.accepted.chain == record.newChain && !now.pending.isPresent;
        case Scenario::kDeleteKeyPair:
        case Scenario::kClear:
            return now == Picture{{}, before.pending};
    }
    return false;
}

/// Whether what an interrupted operation has left is nothing half done.
bool IsBetween(Scenario scenario, const Record& record, const Picture& now) {
    if (scenario != Scenario::kPass) {
        return now == record.before || IsDone(scenario, record, now);
    }
    if (now.accepted == record.before.accepted) {
        return true;
    }
    // The accepted pair goes before the new one takes its place.
    const bool isPendingWhole = now.pending.isPresent && now.pending.chain == record.newChain;
    return record.isInstalling &&
           (IsDone(scenario, record, now) || (!now.accepted.isPresent && isPendingWhole));
}

std::string Describe(const Slot& slot) {
    return slot.isPresent ? "key " + std::to_string(slot.key % 1000) + " chain " +
                                std::to_string(slot.chain % 1000)
                          : "absent";
}

std::string Describe(const Picture& picture) {
    return "accepted " + Describe(picture.accepted) + ", pending " + Describe(picture.pending);
}

void CheckFile() {
    sqlite3* database = nullptr;
    std::string answer;
    const auto take = [](void* text, int /*columns*/, char** values, char** /*names*/) {
        *static_cast<std::string*>(text) += values[0];
        return 0;
    };
    const std::string path = StoreAdministration::DefaultDirectory() + "/store.db";
    if (sqlite3_open(path.c_str(), &database) == SQLITE_OK) {
        sqlite3_exec(database, "PRAGMA integrity_check; PRAGMA foreign_key_check;", take, &answer,
                     nullptr);
    }
    sqlite3_close(database);
    Require(answer == "ok", "integrity_check: " + answer);
}

void CheckAndEnrol(Scenario scenario, const Family& backend, Record& record) {
    Require(!record.hasFailed, record.verdict.data());
    Hsm hsm;
    const Picture now = Store().Look();
    CheckFile();
    Require(record.isDone ? IsDone(scenario, record, now) : IsBetween(scenario, record, now),
            std::string(record.isDone ? "done, but " : "half done: ") + Describe(now) +
                "; before: " + Describe(record.before));
    const StatusCode status = hsm.CheckTrustStoreTivValidity(kVin);
    const StatusCode expected = now.accepted.isPresent ? StatusCode::Ok : StatusCode::NoCertificate;
    Require(status == expected, "the judgement is " + std::to_string(static_cast<int>(status)));
    Pass(hsm, backend, record);
    Require(hsm.CheckTrustStoreTivValidity(kVin) == StatusCode::Ok, "the next pass does not help");
}

void Note(Record& record, const std::string& verdict) {
    std::snprintf(record.verdict.data(), record.verdict.size(), "%s", verdict.c_str());
}

}  // namespace

const char* NameOf(Scenario scenario) {
    switch (scenario) {
        case Scenario::kGenerateKeyPair:
            return "generateKeyPair";
        case Scenario::kStoreCertificateForKeyPair:
            return "storeCertificateForKeyPair";
        case Scenario::kMoveKeyPair:
            return "moveKeyPair";
        case Scenario::kDeleteKeyPair:
            return "deleteKeyPair";
        case Scenario::kPass:
            return "whole pass";
        case Scenario::kClear:
            return "deletion by the facade";
    }
    return "";
}

void Provision(const Family& backend) {
    std::unique_ptr<StoreAdministration> administration;
    const auto made =
        StoreAdministration::CreateOrOpen(StoreAdministration::DefaultDirectory(), administration);
    Require(static_cast<bool>(made), made.message);
    const auto stored =
        administration->StoreCertificate("PRODUCT_PKI_ROOT_CERT", backend.root.Pem());
    Require(static_cast<bool>(stored), stored.message);
    Record ignored;
    Hsm hsm;
    Pass(hsm, backend, ignored);
}

void Play(Scenario scenario, const Blow& blow, const Family& backend, Record& record) {
    try {
        Hsm hsm;
        const Store store;
        const auto operation = Prepare(scenario, store, hsm, backend, record);
        record.before = store.Look();
        Arm(blow);
        const auto start = std::chrono::steady_clock::now();
        operation();
        record.isDone = true;
        if (blow.plan.fault == store_faults::Fault::kPowerCut) {
            store_faults::CutPower();
        }
        record.calls = store_faults::Disarm();
        record.nanoseconds =
            std::chrono::nanoseconds(std::chrono::steady_clock::now() - start).count();
    } catch (const std::exception& error) {
        record.hasFailed = true;
        Note(record, error.what());
    }
}

void Start(const Blow& blow) {
    try {
        Arm(blow);
        const Hsm hsm;
    } catch (const std::exception&) {
        // The inspection finds out why.
        return;
    }
}

void Inspect(Scenario scenario, const Family& backend, Record& record) {
    try {
        CheckAndEnrol(scenario, backend, record);
        Note(record, "sound");
    } catch (const std::exception& error) {
        Note(record, error.what());
    }
}

}  // namespace kill_store
