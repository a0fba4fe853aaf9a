#include "durability/scenario.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <stdexcept>
#include <string>

#include "certificates/crypto_api_instance.h"
#include "certificates/hsm.h"
#include "orv_sec_crypto/store_administration.h"

namespace kill_store {

namespace {

using orv::sec::crypto::host::StoreAdministration;
using testing_support::CertificateTraits;
using testing_support::ClientStore;
using testing_support::Family;
using testing_support::Fits;
using testing_support::kAcceptedChain;
using testing_support::kAcceptedKey;
using testing_support::kAny;
using testing_support::kPendingChain;
using testing_support::kStoreOperations;
using testing_support::Picture;
using vintrel::Hsm;
using vintrel::StatusCode;

constexpr const char* kVin = "VNTREL00000000001";
constexpr const char* kCommonName = "VNTREL00000000001:C003";

void Require(bool condition, const std::string& what) {
    if (!condition) {
        throw std::runtime_error(what);
    }
}

std::string Describe(const Picture& picture) {
    std::string text;
    for (const std::size_t digest : picture) {
        text += " " + std::to_string(digest % 1000);
    }
    return text;
}

ClientStore OpenStore(const Family& backend) {
    return {*vintrel::CryptoApiInstance::GetCryptoApiInstance(), backend};
}

void Pass(Hsm& hsm, const Family& backend, Record& record) {
    CertificateTraits traits;
    traits.key = testing_support::ReadRequest(hsm.GenerateCsr(kVin), kCommonName);
    const std::string chain =
        testing_support::PemOf({IssuedBy(backend.intermediate, traits), backend.intermediate});
    Require(!hsm.CheckTivCertificate(chain, kVin), "CheckTivCertificate refuses the answer");
    record.expected = {kAny, testing_support::DigestOf(chain), 0, 0, kAny};
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

void Run(Scenario scenario, const ClientStore& store, Hsm& hsm, const Family& backend,
         Record& record) {
    if (scenario == kPass) {
        Pass(hsm, backend, record);
    } else if (scenario == kClear) {
        Require(!hsm.DeleteTivCertificateFromTrustStore(),
                "DeleteTivCertificateFromTrustStore fails");
    } else {
        const auto code = kStoreOperations[scenario].run(store);
        Require(code == orv::sec::crypto::common::CryptoResultCode::kSuccess,
                "the operation gives " + std::to_string(static_cast<int>(code)));
    }
}

/// Whether what an interrupted operation has left is nothing half done.
bool IsBetween(Scenario scenario, const Record& record, const Picture& now) {
    if (scenario != kPass) {
        return now == record.before || Fits(now, record.expected);
    }
    if (now[kAcceptedKey] == record.before[kAcceptedKey] &&
        now[kAcceptedChain] == record.before[kAcceptedChain]) {
        return true;
    }
    // The accepted pair goes before the new one takes its place.
    return record.isInstalling &&
           (Fits(now, record.expected) ||
            (now[kAcceptedKey] == 0 && now[kPendingChain] == record.expected[kAcceptedChain]));
}

void CheckAndEnrol(Scenario scenario, const Family& backend, Record& record) {
    Require(!record.hasFailed, record.verdict.data());
    Hsm hsm;
    const Picture now = OpenStore(backend).Look();
    const std::string file =
        testing_support::ExecuteSql(StoreAdministration::DefaultDirectory(),
                                    "PRAGMA integrity_check; PRAGMA foreign_key_check");
    Require(file == "ok", "integrity_check: " + file);
    Require(record.isDone ? Fits(now, record.expected) : IsBetween(scenario, record, now),
            std::string(record.isDone ? "done, but " : "half done: ") + Describe(now) +
                "; before: " + Describe(record.before));
    const StatusCode status = hsm.CheckTrustStoreTivValidity(kVin);
    const StatusCode expected = now[kAcceptedKey] != 0 ? StatusCode::Ok : StatusCode::NoCertificate;
    Require(status == expected, "the judgement is " + std::to_string(static_cast<int>(status)));
    Pass(hsm, backend, record);
    Require(hsm.CheckTrustStoreTivValidity(kVin) == StatusCode::Ok, "the next pass does not help");
}

void Note(Record& record, const std::string& verdict) {
    std::snprintf(record.verdict.data(), record.verdict.size(), "%s", verdict.c_str());
}

}  // namespace

const char* NameOf(Scenario scenario) {
    if (scenario < kStoreOperations.size()) {
        return kStoreOperations[scenario].name;
    }
    return scenario == kPass ? "whole pass" : "deletion by the facade";
}

void Provision(const Family& backend) {
    testing_support::ProvisionStore(StoreAdministration::DefaultDirectory(), backend.root.Pem());
    Record ignored;
    Hsm hsm;
    Pass(hsm, backend, ignored);
}

void Play(Scenario scenario, const Blow& blow, const Family& backend, Record& record) {
    try {
        Hsm hsm;
        ClientStore store = OpenStore(backend);
        store.Reset();
        if (scenario < kStoreOperations.size()) {
            kStoreOperations[scenario].begin(store);
        }
        record.before = record.expected = store.Look();
        if (scenario < kStoreOperations.size()) {
            kStoreOperations[scenario].expect(store, record.expected);
        } else if (scenario == kClear) {
            record.expected[kAcceptedKey] = record.expected[kAcceptedChain] = 0;
        }
        Arm(blow);
        const auto start = std::chrono::steady_clock::now();
        Run(scenario, store, hsm, backend, record);
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
