#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>

#include "certificates/client_cert_initializer_api_impl.h"
#include "certificates/crypto_api_instance.h"
#include "certificates/hsm.h"
#include "certificates/scripted_library_test.h"
#include "certificates/tive_generator_fnd_tive.h"
#include "certificates/x509_crypto_api_validator.h"

namespace vintrel {

namespace {

using orv::tee::ClientCertInitializerAPI;
using testing_support::Outcome;
using Lines = std::vector<std::string>;

constexpr std::chrono::seconds kNow{1795248900};
constexpr std::chrono::hours kYear{365 * 24};

/// A result: the operation goes on as if the call had succeeded.
constexpr const char* kGoesOn = "goes on";
const Lines kReplacing{"I generate_private_key: key ID already exists, deleting"};
const Lines kRequested{"I The Keys were generated successfully",
                       "I The CSR was generated successfully"};
/// A result: the error number that belongs to the library's code.
constexpr const char* kMapped = "mapped";

/// A call of the library with its arguments, and what the log tells of its failure behind the
/// operation's name: "" for no line; after ": " comes the code.
struct Step {
    std::string mCall;
    std::string mFailed;
    /// For a null or empty object; no value where there is none, or any will do.
    std::optional<std::string> mNull = std::nullopt;
    /// It gives a code, with no flag beside it.
    bool mIsBare = false;
};

std::string NameOf(const std::string& call) {
    return call.substr(0, call.find(' '));
}
Step Object(const std::string& call) {
    return {call, ": " + NameOf(call) + " failed: ", ": " + NameOf(call) + " returned null"};
}
Step Bytes(const std::string& call, const std::string& empty = "") {
    return {call, ": " + NameOf(call) + " failed: ", empty};
}
Step Date(const std::string& call) {
    return {call, ": " + NameOf(call) + " failed: "};
}
Step Bare(const std::string& call, const std::string& failed = "") {
    return {call, failed, std::nullopt, true};
}

/// Calls whose failure ends an operation in one way.
struct Stage {
    /// With the level of the line in front; "!" stands for an exception.
    std::string mOperation;
    std::vector<Step> mSteps;
    std::string mResult;
    /// What the log has after the call's own line.
    Lines mThen = {};
};

using Stages = std::vector<Stage>;

struct Operation {
    std::function<std::string()> mRun;
    std::string mResult;
    Stages mStages;
    /// What a success logs.
    Lines mLogged = {};
    /// Whether it leaves the library alone after a failure.
    bool mStops = true;
    /// Whether the store "TIV" has to be made.
    bool mIsStoreMissing = false;
};

struct Trace {
    std::string mResult;
    Lines mLines;
};

template <typename Number>
std::string Text(Number number) {
    return std::to_string(static_cast<int>(number));
}

std::string Text(const std::vector<std::uint8_t>& bytes) {
    return {bytes.begin(), bytes.end()};
}

Stages GeneratePrivateKey(const std::string& failed, const Lines& thenFailed,
                          const std::string& passed, const Lines& thenPassed) {
    return {{"E generate_private_key",
             {{"makeKeyId TIV/TIV_CSR", ": makeKeyId failed: ", ": keyHandle is null"}},
             failed,
             thenFailed},
            // Where the pair isn't seen, none is deleted.
            {"", {Bare("checkKeyId TIV/TIV_CSR")}, passed, thenPassed},
            {"I generate_private_key",
             {Bare("deleteKeyPair TIV/TIV_CSR", ": failed to delete existing keypair: ")},
             kGoesOn},
            {"", {Bare("generateKeyPair TIV/TIV_CSR 2")}, failed, thenFailed}};
}

Stages GenerateCsr() {
    Stages stages = GeneratePrivateKey("", {"E Failed to generate the Keys!"},
                                       "request VIN:C003 0 TIV/TIV_CSR", kRequested);
    stages.push_back({"E generate_csr",
                      {Object("makeKeyId TIV/TIV_CSR"),
                       {"generateCsr VIN:C003 0 TIV/TIV_CSR", ": failed to generate CSR: ", ""}},
                      "",
                      {"E Generated CSR was empty!"}});
    return stages;
}

Stages GetKoruVin() {
    const Lines unreadable{"E GetKoruVin: Certificate parsing failed"};
    return {{"E get_client_cert",
             {Object("makeKeyId KORU/ECU_BASE_CERT"),
              Bytes("loadCertificateForKeyPair KORU/ECU_BASE_CERT")},
             "",
             unreadable},
            {"E SplitCertificateChain", {Bytes("splitCertificatesChain")}, "", unreadable},
            {"I GetCertificateCommonName",
             {Bytes("getCertificateIssuerCommonName")},
             "",
             {"E GetKoruVin: Can't get a certificate common name"}}};
}

Stages Install(const std::string& failed) {
    const auto makeKeyId = [](const std::string& id, const std::string& path) {
        return Step{"makeKeyId " + path, ": makeKeyId for " + id + " failed: ",
                    ": makeKeyId for " + id + " returned null"};
    };
    return {{"E InstallCertificate",
             {makeKeyId("srcKeyId", "TIV/TIV_CSR"),
              Bare("storeCertificateForKeyPair TIV/TIV_CSR chain",
                   ": storeCertificateForKeyPair failed: "),
              makeKeyId("destKeyId", "TIV/TIV")},
             failed},
            {"", {Bare("deleteKeyPair TIV/TIV")}, kGoesOn},
            {"", {Bare("moveKeyPair TIV/TIV_CSR TIV/TIV")}, failed}};
}

Stages Clear(const std::string& failed) {
    return {{"E DeleteKeyPair",
             {{"makeKeyId TIV/TIV", ": makeKeyId failed: ", ": keyHandle is null"}},
             failed},
            {"I DeleteKeyPair",
             {Bare("deleteKeyPair TIV/TIV", ": failed to delete keypair: ")},
             failed}};
}

/// With the pair whose public key the leaf must have.
Stages CheckStored(const std::string& pair = "TIV/TIV") {
    const std::string none = Text(StatusCode::NoCertificate);
    const std::string name = Text(StatusCode::CommonNameMismatch);
    const std::string key = Text(StatusCode::KeyMismatch);
    const std::string path = Text(StatusCode::PathInvalid);
    const std::string noProof = "E CheckTrustStoreTivValidity: Signature verification failed";
    const std::vector<Step> storeTemp = {
        {"makeCertId TIV/TIV_TMP", ": makeCertId failed: ", ": makeCertId returned nullptr"},
        Bare("storeCertificate TIV/TIV_TMP leaf", ": storeCertificate: ")};
    const auto verify = [](const std::string& by) {
        return Bare("verifyCertificate " + by, ": verifyCertificate failed: ");
    };
    return {
        {"E get_client_cert",
         {Object("makeKeyId TIV/TIV"), Bytes("loadCertificateForKeyPair TIV/TIV")},
         none},
        {"E SplitCertificateChain", {Bytes("splitCertificatesChain")}, none},
        {"I GetCertificateCommonName", {Bytes("getCertificateIssuerCommonName")}, name},
        {"E get_public_key",
         {Object("makeKeyId " + pair), Bytes("loadPublicKey " + pair)},
         key,
         {"E CheckCertificatePublicKey: Invalid public key"}},
        {"E StoreTempCertificate",
         storeTemp,
         key,
         {"E CheckCertificatePublicKey: StoreTempCertificate failed"}},
        {"E CheckCertificatePublicKey",
         {Object("makeKeyId TIV/TIV_TMP"),
          Bytes("loadPublicKey TIV/TIV_TMP", ": The Certificate and the Key do not match!")},
         key},
        {"E generate_signature",
         {Object("makeKeyId TIV/TIV"), Object("createDigitalSignature 0"), Bytes("sign VIN")},
         key,
         {"E VerifySignature: verification failed: 8", noProof}},
        {"E StoreTempCertificate",
         storeTemp,
         key,
         {"E VerifySignature: StoreTempCertificate failed", noProof}},
        {"E VerifySignature",
         {Object("makeKeyId TIV/TIV_TMP"), Object("createDigitalSignature 0"),
          Bare("verify VIN signed by TIV/TIV over VIN by TIV/TIV_TMP", ": verification failed: ")},
         key,
         {noProof}},
        {"E get_root_cert_bundle",
         {Object("makeCertId KORU/PRODUCT_PKI_ROOT_CERT"),
          Bytes("loadCertificate KORU/PRODUCT_PKI_ROOT_CERT")},
         path,
         {"E ValidateCertificatePath: provided root certificate is empty"}},
        {"I ValidateCertificatePath",
         {verify("leaf by ca"), verify("ca by certificate of KORU/PRODUCT_PKI_ROOT_CERT")},
         path},
        {"I CheckCertificateValidityTime",
         {Date("getCertificateNotBeforeDate"), Date("getCertificateNotAfterDate")},
         Text(StatusCode::ExpiresWithinYear)},
    };
}

/// As above without the look at the store, the proof of possession and the dates.
Stages CheckReceived() {
    const Stages stored = CheckStored("TIV/TIV_CSR");
    Stages stages;
    for (const std::size_t index : {1, 2, 3, 4, 5, 9, 10}) {
        stages.push_back(stored[index]);
        stages.back().mResult = "true";
    }
    return stages;
}

Stages Container() {
    return {{"E ConstructContainer",
             {Object("createTrustStoreManager"), Object("lookupForKORUStore")},
             ""},
            {"E ConstructContainer",
             {{"lookupTrustStore TIV", "", ": createTrustStore returned null"}},
             kGoesOn},
            {"E ConstructContainer", {Object("createTrustStore TIV")}, ""},
            {"E ConstructContainer",
             {Object("makeKeyId KORU/ECU_BASE_CERT"),
              Object("CreateCertificateChainEncoder 1 KORU/ECU_BASE_CERT false"),
              {"encode \1||0||",
               ": TIVE container generation failed: ", ": empty TIVE container was returned"}},
             ""}};
}

Stages ApiConstruction() {
    return {{"!",
             {{"createTrustStoreManager", " Failed to create TrustStoreManager",
               " TrustStoreManager is null"}},
             ""},
            {"!", {{"lookupTrustStore TIV", "", " ClientCertStore is null"}}, kGoesOn},
            {"!",
             {{"createTrustStore TIV", " Failed to create ClientCertStore",
               " ClientCertStore is null"}},
             ""},
            {"!", {{"lookupForKORUStore", " KORUStore not found", " KORUStore is null"}}, ""}};
}

Stages ValidatorConstruction() {
    return {{"!",
             {{"createCertificateHandler", " createCertificateHandler failed",
               " createCertificateHandler returned null"},
              {"createTrustStoreManager", " createTrustStoreManager failed",
               " createTrustStoreManager returned null"}},
             ""},
            {"", {{"lookupTrustStore TIV", ""}}, kGoesOn},
            {"!", {{"createTrustStore TIV", " Failed to create temporary trust store"}}, ""}};
}

Stages LibraryLifetime() {
    return {{"!",
             {{"initCryptoLib", " Failed to initialize Crypto Library API",
               " initCryptoLib returned null"}},
             ""},
            {"E Failed", {Bare("cleanupCryptoLib", " to cleanup Crypto Library API")}, "made"}};
}

/// Lets each call of each operation fail in each way that the library can fail.
class LibraryFailureTest : public testing_support::ScriptedLibraryTest {
protected:
    Trace Run(const Operation& operation, std::size_t failing = 0, Outcome outcome = {}) {
        mLibrary.Reset();
        mLibrary.mKeyPairs = {"TIV/TIV_CSR"};
        mLibrary.mTexts = {{"loadCertificateForKeyPair", "leaf,ca"},
                           {"loadPublicKey", "key"},
                           {"getCertificateIssuerCommonName", "VIN:C003"}};
        mLibrary.mNotAfter = (kNow + kYear).count();
        if (operation.mIsStoreMissing) {
            mLibrary.Script("lookupTrustStore", {1, 4});
        }
        CapturedLog log;
        // What went well before is of no interest.
        mLibrary.FailCall(failing, outcome, [&log] { log.Clear(); });
        try {
            const std::string result = operation.mRun();
            return {result, log.Lines()};
        } catch (const std::runtime_error& error) {
            return {"", {std::string("! ") + error.what()}};
        }
    }

    Trace Expected(const Operation& operation, const Stage& stage, const Step& step,
                   std::size_t number, Outcome outcome) {
        std::string text = outcome.mNullObject ? *step.mNull : step.mFailed;
        if (!text.empty() && text.back() == ' ') {
            text += std::to_string(outcome.mCode);
        }
        const Lines own = text.empty() ? Lines{} : Lines{stage.mOperation + text};
        if (stage.mOperation == "!" && !own.empty()) {
            return {"", own};
        }
        Trace expected{stage.mResult, stage.mThen};
        if (stage.mResult == kGoesOn) {
            expected = outcome.mNullObject ? Trace{} : Run(operation, number);
        } else if (stage.mResult == kMapped) {
            expected.mResult = outcome.mCode == 0 ? "5" : "3";
        }
        expected.mLines.insert(expected.mLines.begin(), own.begin(), own.end());
        return expected;
    }

    void FailStep(const Operation& operation, const Stage& stage, const Step& step,
                  std::size_t number) {
        for (const Outcome outcome : {Outcome{1, 0}, {1, 7}, {0, 7}, testing_support::kNull}) {
            if (outcome.mNullObject ? !step.mNull : outcome.mCode == 0 && step.mIsBare) {
                continue;
            }
            const Trace expected = Expected(operation, stage, step, number, outcome);
            const int liveStores = mLibrary.mLiveStores;
            const Trace seen = Run(operation, number, outcome);
            EXPECT_EQ(seen.mResult, expected.mResult) << Text(outcome.mCode);
            EXPECT_EQ(seen.mLines, expected.mLines) << Text(outcome.mCode);
            EXPECT_EQ(mLibrary.mLiveStores, liveStores);
            if (operation.mStops && seen.mResult != operation.mResult) {
                EXPECT_EQ(mLibrary.mCalls.size(), number);
            }
        }
    }

    void Drive(const Operation& operation) {
        const Trace good = Run(operation);
        EXPECT_EQ(good.mResult, operation.mResult);
        EXPECT_EQ(good.mLines, operation.mLogged);
        const Lines calls = mLibrary.mCalls;
        std::size_t number = 0;
        for (const Stage& stage : operation.mStages) {
            for (const Step& step : stage.mSteps) {
                if (NameOf(step.mCall) == "createTrustStore" && !operation.mIsStoreMissing) {
                    continue;
                }
                ASSERT_LT(number, calls.size());
                ASSERT_EQ(calls[number], step.mCall);
                SCOPED_TRACE(stage.mOperation + ", " + step.mCall);
                FailStep(operation, stage, step, ++number);
            }
        }
        EXPECT_EQ(number, calls.size());
    }

    Hsm mHsm{[] { return std::chrono::system_clock::time_point(kNow); }};
    std::shared_ptr<ClientCertInitializerAPI> mApi = ClientCertInitializerAPI::get_instance();
    std::shared_ptr<X509ValidatorIf> mValidator = X509ValidatorIf::CreateX509Validator();
};

TEST_F(LibraryFailureTest, EveryFailureOfEveryCallHasItsLineAndIsNeverASuccess) {
    const auto change = [this](const char* chain) {
        return Text(mApi->set_client_cert_and_move_key(chain, "TIV_CSR", "TIV"));
    };
    Drive({[this] { return Text(mApi->generate_private_key("TIV_CSR")); }, "0",
           GeneratePrivateKey(kMapped, {}, "0", {}), kReplacing});
    Drive({[&] { return change("chain"); }, "0", Install(kMapped)});
    Drive({[&] { return change(""); }, "0", Clear("5")});
    Drive({[this] { return mValidator->EncodePemToDer("pem"); },
           "DER of pem",
           {{"E EncodePemToDer", {Bytes("pemToDer 0")}, ""}}});
}

TEST_F(LibraryFailureTest, TheFacadeSaysWhichCheckCouldNotBeMade) {
    const auto truth = [](bool failed) { return failed ? "true" : "false"; };
    const auto with = [](Lines lines, const Lines& more) {
        lines.insert(lines.end(), more.begin(), more.end());
        return lines;
    };
    Drive({[this] { return Text(mHsm.GenerateCsr("VIN")); }, "request VIN:C003 0 TIV/TIV_CSR",
           GenerateCsr(), with(kReplacing, kRequested), false});
    Drive({[this] { return mHsm.GetKoruVin(); },
           "VIN",
           GetKoruVin(),
           {"I GetKoruVin: Returning VIN: 'VIN' from certificate common name: 'VIN:C003', "
            "certificate ID: 'BASE'"},
           false});
    Drive({[&] { return truth(mHsm.StoreTivCertificateToTrustStore("chain")); }, "false",
           Install("true")});
    Drive(
        {[&] { return truth(mHsm.DeleteTivCertificateFromTrustStore()); }, "false", Clear("true")});
    const Lines received{"I CN derived from the VIN: VIN:C003",
                         "I CN from the Certificate: VIN:C003",
                         "I The CN from the Certificate and the CN derived from VIN match",
                         "I CheckCertificatePublicKey: The Certificate and the Key match"};
    Drive({[&] { return truth(mHsm.CheckTivCertificate("leaf,ca", "VIN")); }, "false",
           CheckReceived(), received, false});
    const std::string prefix = "I X509CryptoApiValidator: ";
    const Lines stored{"I VerifySignature: verification succeeded",
                       "D CheckTrustStoreTivValidity: Signature verification passed",
                       prefix + "Current system time is 2026/11/21 08:15:00 UTC",
                       prefix + "The TIV Certificate is valid from 1970/01/01 00:00:00 UTC",
                       prefix + "The TIV Certificate expires at 2027/11/21 08:15:00 UTC",
                       "I The Certificate is currently valid"};
    Drive({[this] { return Text(mHsm.CheckTrustStoreTivValidity("VIN")); }, Text(StatusCode::Ok),
           CheckStored(), with(received, stored), false});
}

TEST_F(LibraryFailureTest, WhatOpensTheStoresFailsWithItsTextAndHoldsNothing) {
    const auto container = [] { return TiveGeneratorIf::Create()->ConstructContainer({1}); };
    const auto makeApi = [] {
        return std::make_unique<orv::tee::impl::ClientCertInitializerAPIImpl>() ? "made" : "";
    };
    const auto makeInstance = [] { return std::make_unique<CryptoApiInstance>() ? "made" : ""; };
    const auto makeValidator = [] {
        return std::make_unique<X509CryptoApiValidator>() ? "made" : "";
    };
    const Lines contained{"I TiveGenerator: The TIVE Container was created successfully"};
    const Lines opened{"I ClientCertInitializerAPIImpl initialized succesfully."};
    Drive({makeInstance, "made", LibraryLifetime(), {"I Crypto API initialized successfully"}});
    for (const bool missing : {false, true}) {
        Drive({container, "container", Container(), contained, true, missing});
        Drive({makeApi, "made", ApiConstruction(), opened, true, missing});
        Drive({makeValidator, "made", ValidatorConstruction(), {}, true, missing});
    }
}

}  // namespace

}  // namespace vintrel
