// Each operation of the crypto library and of the container on a unit's store, in turn with the
// bare OpenSSL calls in it. An operation that reads a key does so from a baseline in memory, and
// counts CPU time. An operation that changes the store is compared with one SQLite transaction that
// makes the same bytes durable, with the settings of the unit's own store, and counts wall time.

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <openssl/pem.h>

#include <orv/sec/crypto/operation/i_certificate_handler.h>
#include <orv/sec/crypto/operation/i_digital_signature.h>
#include <orv/sec/crypto/operation/i_trust_store_manager.h>

#include "benchmarks/bare_crypto.h"
#include "benchmarks/bare_store.h"
#include "certificates/certificate_ids.h"
#include "certificates/crypto_api_instance.h"
#include "certificates/library_values.h"
#include "client/tive_generator_if.h"
#include "orv_sec_crypto/store_administration.h"

namespace {

using namespace bare_pass;
using namespace orv::sec::crypto;
using common::ByteVector;
using common::CryptoResultCode;

const std::string kVin = "VIN";
const std::string kCommonName = kVin + ":C003";
const std::string kPending = vintrel::kKeyIdTivCsr;
const std::string kAccepted = vintrel::kKeyIdTiv;
const std::string kScratch = vintrel::kKeyIdTivTmp;

void Require(CryptoResultCode code) {
    bare_pass::Require(code == CryptoResultCode::kSuccess);
}

template <typename Object>
Object Take(common::ErrorOrObjectResult<CryptoResultCode, Object> result) {
    bare_pass::Require(result.IsSuccess());
    return std::move(result).GetObject();
}

std::string PrivateKeyPem(EVP_PKEY* key) {
    const OpenSslPtr<BIO, BIO_free_all> bio(BIO_new(BIO_s_mem()));
    bare_pass::Require(
        PEM_write_bio_PrivateKey(bio.get(), key, nullptr, nullptr, 0, nullptr, nullptr) == 1);
    char* data = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &data);
    return {data, static_cast<std::size_t>(size)};
}

/// Who issues certificates: the root, and a CA below it.
struct Authority {
    std::string IssueChain(EVP_PKEY* key) const {
        return ToPem(Issue(kCommonName, Role::kUnit, key, ca.get(), caKey.get()).get()) +
               ToPem(ca.get());
    }

    Key rootKey = NewKey();
    Key caKey = NewKey();
    Certificate root = Issue("root", Role::kCa, rootKey.get(), nullptr, rootKey.get());
    Certificate ca = Issue("ca", Role::kCa, caKey.get(), root.get(), rootKey.get());
};

/// A provisioned unit's store in the directory that ORV_CRYPTO_DIR names, through the library.
class UnitStore {
public:
    explicit UnitStore(const Authority& authority) : mAuthority(authority) {
        std::unique_ptr<host::StoreAdministration> administration;
        bare_pass::Require(bool{host::StoreAdministration::CreateOrOpen(
            host::StoreAdministration::DefaultDirectory(), administration)});
        const Key baseKey = NewKey();
        bare_pass::Require(bool{
            administration->ImportKeyPair(vintrel::kKoruCertIdEcuBase, PrivateKeyPem(baseKey.get()),
                                          authority.IssueChain(baseKey.get()))});
        administration.reset();
        provider = vintrel::CryptoApiInstance::GetCryptoApiInstance();
        store = Take(Take(provider->createTrustStoreManager())->createTrustStore(kAccepted));
        handler = Take(provider->createCertificateHandler());
    }

    auto KeyId(const std::string& id) const { return Take(store->makeKeyId(id)); }

    void NewPair(const std::string& id) const {
        Remove(id);
        Require(store->generateKeyPair(KeyId(id), store::KeyType::kEcP256));
    }
    void Remove(const std::string& id) const { store->deleteKeyPair(KeyId(id)); }

    /// A chain for the pair's own key.
    ByteVector ChainFor(const std::string& id) const {
        const ByteVector der = Take(store->loadPublicKey(KeyId(id)));
        const unsigned char* position = der.data();
        const Key key(d2i_PUBKEY(nullptr, &position, static_cast<long>(der.size())));
        return vintrel::ToLibraryBytes(mAuthority.IssueChain(key.get()));
    }

    std::shared_ptr<ICryptoServiceProvider> provider;
    std::shared_ptr<store::ITrustStore> store;
    std::shared_ptr<operation::ICertificateHandler> handler;

private:
    const Authority& mAuthority;
};

/// The same content for the baseline.
class BareUnit {
public:
    BareUnit(const Authority& authority, const std::string& path)
        : mAuthority(authority), file(path) {}

    void PutPair(Store& store, const std::string& id) const {
        const Key key = NewKey();
        store.Put(
            {{id, WrapPair(id, key.get())}, {id + " chain", mAuthority.IssueChain(key.get())}});
    }
    std::string WrapPair(const std::string& id, EVP_PKEY* key) const {
        return Wrap(mWrappingKey, id, EncodeKey(key));
    }
    Key OpenPair(Store& store, const std::string& id) const {
        return DecodeKey(Unwrap(mWrappingKey, id, store.Get(id)));
    }

private:
    const Authority& mAuthority;
    WrappingKey mWrappingKey = NewWrappingKey();

public:
    Store memory;
    FileStore file;
};

double Microseconds(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) * 1e-3;
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values.at(values.size() / 2);
}

/// What is timed, and what makes it possible each time.
struct Side {
    std::function<void()> prepare;
    std::function<void()> act;

    double Time(clockid_t clock) const {
        if (prepare) {
            prepare();
        }
        const double start = Microseconds(clock);
        act();
        return Microseconds(clock) - start;
    }
};

class Comparison {
public:
    explicit Comparison(int rounds) : mRounds(rounds) {}

    void Computes(const std::string& item, const Side& ours, const Side& bare) const {
        Compare(item, "computes", CLOCK_THREAD_CPUTIME_ID, ours, bare);
    }
    void Stores(const std::string& item, const Side& ours, const Side& bare) const {
        Compare(item, "stores", CLOCK_MONOTONIC, ours, bare);
    }

private:
    void Compare(const std::string& item, const char* kind, clockid_t clock, const Side& ours,
                 const Side& bare) const {
        std::vector<double> oursTimes;
        std::vector<double> bareTimes;
        for (int round = 0; round < mRounds; ++round) {
            oursTimes.push_back(ours.Time(clock));
            bareTimes.push_back(bare.Time(clock));
        }
        std::cout << nlohmann::json{{"item", item},
                                    {"kind", kind},
                                    {"ours", Median(std::move(oursTimes))},
                                    {"bare", Median(std::move(bareTimes))}}
                  << std::endl;
    }

    int mRounds;
};

void CompareCalculations(const Comparison& comparison, const Authority& authority,
                         const UnitStore& ours, BareUnit& bare) {
    ours.NewPair(kAccepted);
    bare.PutPair(bare.memory, kAccepted);
    const ByteVector chain = ours.ChainFor(kAccepted);
    Require(ours.store->storeCertificateForKeyPair(ours.KeyId(kAccepted), chain));
    const std::vector<ByteVector> split = Take(ours.handler->splitCertificatesChain(chain));
    Require(ours.store->storeCertificate(Take(ours.store->makeCertId(kScratch)), split.front()));
    const std::string chainPem = bare.memory.Get(kAccepted + " chain");
    const ByteVector content = vintrel::ToLibraryBytes(kVin);

    comparison.Computes(
        "signing request",
        {{}, [&] { Take(ours.store->generateCsr(kCommonName, {}, ours.KeyId(kAccepted))); }},
        {{}, [&] { MakeRequest(bare.OpenPair(bare.memory, kAccepted).get(), kCommonName); }});

    const auto signer = [&](const std::string& id) {
        operation::DigitalSignatureParams params;
        params.keyId = ours.KeyId(id);
        return Take(ours.provider->createDigitalSignature(params));
    };
    comparison.Computes("signature", {{}, [&] { Take(signer(kAccepted)->sign(content)); }},
                        {{}, [&] { Sign(bare.OpenPair(bare.memory, kAccepted).get(), kVin); }});

    const ByteVector oursSignature = Take(signer(kAccepted)->sign(content));
    const Bytes bareSignature = Sign(bare.OpenPair(bare.memory, kAccepted).get(), kVin);
    comparison.Computes(
        "signature verified",
        {{}, [&] { Require(signer(kScratch)->verify(oursSignature, content)); }},
        {{}, [&] { Verify(X509_get0_pubkey(FromPem(chainPem).get()), bareSignature, kVin); }});

    // A new chain each time: the library keeps what it has parsed.
    ByteVector newChain;
    std::string newChainPem;
    const auto issueOurs = [&] {
        newChain = vintrel::ToLibraryBytes(authority.IssueChain(NewKey().get()));
    };
    const auto issueBare = [&] { newChainPem = authority.IssueChain(NewKey().get()); };
    comparison.Computes("new chain read",
                        {issueOurs, [&] { Take(ours.handler->splitCertificatesChain(newChain)); }},
                        {issueBare, [&] { ParseChain(newChainPem); }});

    const std::string rootPem = ToPem(authority.root.get());
    const ByteVector root = vintrel::ToLibraryBytes(rootPem);
    comparison.Computes(
        "new chain verified",
        {issueOurs,
         [&] {
             const auto parts = Take(ours.handler->splitCertificatesChain(newChain));
             Require(ours.handler->verifyCertificate(parts[0], parts[1]));
             Require(ours.handler->verifyCertificate(parts[1], root));
         }},
        {issueBare, [&] {
             const Chain parts = ParseChain(newChainPem);
             bare_pass::Require(
                 X509_verify(parts[0].get(), X509_get0_pubkey(parts[1].get())) == 1 &&
                 X509_verify(parts[1].get(), X509_get0_pubkey(FromPem(rootPem).get())) == 1);
         }});

    const auto request = MakeRequest(bare.OpenPair(bare.memory, kAccepted).get(), kCommonName);
    const auto generator = vintrel::TiveGeneratorIf::Create();
    comparison.Computes(
        "container",
        {{}, [&] { bare_pass::Require(!generator->ConstructContainer(request).empty()); }},
        {{}, [&] {
             MakeContainer(bare.OpenPair(bare.memory, kAccepted).get(), ParseChain(chainPem),
                           request);
         }});
}

void ComparePendingPairs(const Comparison& comparison, const UnitStore& ours, BareUnit& bare) {
    Key key;
    comparison.Stores(
        "key pair made",
        {[&] { ours.Remove(kPending); },
         [&] {
             Require(ours.store->generateKeyPair(ours.KeyId(kPending), store::KeyType::kEcP256));
         }},
        {[&] { bare.file.Remove(kPending); },
         [&] {
             key = NewKey();
             bare.file.Put({{kPending, bare.WrapPair(kPending, key.get())}});
         }});

    ByteVector chain;
    std::string bareChain;
    comparison.Stores(
        "chain attached",
        {[&] {
             ours.NewPair(kPending);
             chain = ours.ChainFor(kPending);
         },
         [&] { Require(ours.store->storeCertificateForKeyPair(ours.KeyId(kPending), chain)); }},
        {[&] {
             bare.PutPair(bare.file, kPending);
             bareChain = bare.file.Get(kPending + " chain");
             bare.file.Remove(kPending + " chain");
         },
         [&] {
             bare_pass::Require(EVP_PKEY_eq(X509_get0_pubkey(ParseChain(bareChain).front().get()),
                                            bare.OpenPair(bare.file, kPending).get()) == 1);
             bare.file.Put({{kPending + " chain", bareChain}});
         }});
}

void CompareAcceptance(const Comparison& comparison, const UnitStore& ours, BareUnit& bare) {
    comparison.Stores(
        "key pair moved",
        {[&] {
             ours.Remove(kAccepted);
             ours.NewPair(kPending);
             Require(ours.store->storeCertificateForKeyPair(ours.KeyId(kPending),
                                                            ours.ChainFor(kPending)));
         },
         [&] { Require(ours.store->moveKeyPair(ours.KeyId(kPending), ours.KeyId(kAccepted))); }},
        {[&] {
             bare.file.Remove(kAccepted);
             bare.PutPair(bare.file, kPending);
         },
         [&] {
             const Key moved = bare.OpenPair(bare.file, kPending);
             bare.file.Change({{kAccepted, bare.WrapPair(kAccepted, moved.get())},
                               {kAccepted + " chain", bare.file.Get(kPending + " chain")}},
                              kPending);
         }});

    comparison.Stores(
        "key pair deleted",
        {[&] { ours.NewPair(kPending); },
         [&] { Require(ours.store->deleteKeyPair(ours.KeyId(kPending))); }},
        {[&] { bare.PutPair(bare.file, kPending); }, [&] { bare.file.Remove(kPending); }});
}

void CompareCertificates(const Comparison& comparison, const UnitStore& ours, BareUnit& bare) {
    ByteVector certificate;
    std::string bareCertificate;
    const auto scratch = Take(ours.store->makeCertId(kScratch));
    comparison.Stores(
        "certificate stored",
        {[&] {
             ours.NewPair(kPending);
             certificate =
                 Take(ours.handler->splitCertificatesChain(ours.ChainFor(kPending))).front();
         },
         [&] { Require(ours.store->storeCertificate(scratch, certificate)); }},
        {[&] {
             bare.PutPair(bare.memory, kPending);
             bareCertificate =
                 ToPem(ParseChain(bare.memory.Get(kPending + " chain")).front().get());
         },
         [&] {
             FromPem(bareCertificate);
             bare.file.Put({{kScratch, bareCertificate}});
         }});
}

}  // namespace

int main(int argc, char* argv[]) {
    try {
        CLI::App app("Operations on keys and certificates against the bare calls in them");
        int rounds = 100;
        std::string directory;
        app.add_option("--rounds", rounds, "Rounds of each item")->check(CLI::Range(1, 100000));
        app.add_option("--directory", directory, "An empty one, for the stores")->required();
        CLI11_PARSE(app, argc, argv);
        setenv("ORV_CRYPTO_DIR", (directory + "/unit").c_str(), 1);
        const Authority authority;
        const UnitStore ours(authority);
        BareUnit bare(authority, directory + "/bare-store.db");
        const Comparison comparison(rounds);
        CompareCalculations(comparison, authority, ours, bare);
        ComparePendingPairs(comparison, ours, bare);
        CompareAcceptance(comparison, ours, bare);
        CompareCertificates(comparison, ours, bare);
        return 0;
    } catch (const std::exception& exception) {
        std::cerr << exception.what() << std::endl;
        return 1;
    }
}
