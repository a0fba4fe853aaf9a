#include "certificates/client_cert_initializer_api.h"

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "certificates/client_cert_initializer_api_impl.h"
#include "certificates/log_text.h"
#include "certificates/scripted_crypto_library.h"
#include "testing/captured_log.h"

namespace orv::tee {

namespace {

using impl::ClientCertInitializerAPIImpl;
using testing::ElementsAre;
using testing::IsEmpty;
using testing_support::CapturedLog;
using testing_support::kNull;
using testing_support::LogText;
using testing_support::Outcome;
using testing_support::ScriptedCryptoLibrary;

using Api = ClientCertInitializerAPI;
using Call = std::function<std::string(Api&)>;

std::string Text(const std::vector<std::uint8_t>& bytes) {
    return {bytes.begin(), bytes.end()};
}
std::string Text(MockTeeError error) {
    return std::to_string(static_cast<int>(error));
}

std::string Generate(Api& api) {
    return Text(api.generate_private_key("TIV_CSR"));
}
std::string Csr(Api& api) {
    return Text(api.generate_csr("VIN:C003", "TIV_CSR"));
}
std::string Sign(Api& api) {
    return Text(api.generate_signature("TIV", {'c'}, "whatever"));
}
std::string Key(Api& api) {
    return api.get_public_key("TIV");
}
std::string Cert(Api& api) {
    return api.get_client_cert("TIV");
}
std::string Root(Api& api) {
    return api.get_root_cert_bundle("KORU");
}
std::string Install(Api& api) {
    return Text(api.set_client_cert_and_move_key("chain", "TIV_CSR", "TIV"));
}
std::string Clear(Api& api) {
    return Text(api.set_client_cert_and_move_key("", "ignored", "TIV"));
}

class ClientCertInitializerApiTest : public testing::Test {
protected:
    ClientCertInitializerApiTest() {
        mLibrary.Reset();
        mApi = std::make_unique<ClientCertInitializerAPIImpl>();
        mLibrary.mCalls.clear();
    }

    std::string ConstructionError(const std::string& operation, Outcome outcome) {
        mLibrary.Script(operation, outcome);
        try {
            ClientCertInitializerAPIImpl api;
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "";
    }

    ScriptedCryptoLibrary& mLibrary = ScriptedCryptoLibrary::Get();
    std::unique_ptr<ClientCertInitializerAPIImpl> mApi;
};

TEST_F(ClientCertInitializerApiTest, EveryFailedResultOfTheLibraryHasItsLineAndGivesNothing) {
    struct Row {
        Call mCall;
        std::string mOperation;
        std::string mFailedLine;
        std::string mNullLine;
        std::string mResults;
        int mNumber = 1;
    };
    const Row rows[] = {
        {Generate, "makeKeyId", "generate_private_key: makeKeyId failed: ",
         "generate_private_key: keyHandle is null", "5345"},
        {Csr, "makeKeyId",
         "generate_csr: makeKeyId failed: ", "generate_csr: makeKeyId returned null", ""},
        {Csr, "generateCsr", "generate_csr: failed to generate CSR: ", "", ""},
        {Sign, "makeKeyId", "generate_signature: makeKeyId failed: ",
         "generate_signature: makeKeyId returned null", ""},
        {Sign, "createDigitalSignature", "generate_signature: createDigitalSignature failed: ",
         "generate_signature: createDigitalSignature returned null", ""},
        {Sign, "sign", "generate_signature: sign failed: ", "", ""},
        {Key, "makeKeyId",
         "get_public_key: makeKeyId failed: ", "get_public_key: makeKeyId returned null", ""},
        {Key, "loadPublicKey", "get_public_key: loadPublicKey failed: ", "", ""},
        {Cert, "makeKeyId",
         "get_client_cert: makeKeyId failed: ", "get_client_cert: makeKeyId returned null", ""},
        {Cert, "loadCertificateForKeyPair",
         "get_client_cert: loadCertificateForKeyPair failed: ", "", ""},
        {Root, "makeCertId", "get_root_cert_bundle: makeCertId failed: ",
         "get_root_cert_bundle: makeCertId returned null", ""},
        {Root, "loadCertificate", "get_root_cert_bundle: loadCertificate failed: ", "", ""},
        {Install, "makeKeyId", "InstallCertificate: makeKeyId for srcKeyId failed: ",
         "InstallCertificate: makeKeyId for srcKeyId returned null", "5345"},
        {Install, "makeKeyId", "InstallCertificate: makeKeyId for destKeyId failed: ",
         "InstallCertificate: makeKeyId for destKeyId returned null", "5345", 2},
        {Clear, "makeKeyId",
         "DeleteKeyPair: makeKeyId failed: ", "DeleteKeyPair: keyHandle is null", "5555"},
    };
    const auto run = [this](const Row& row, Outcome outcome, const std::string& line) {
        mLibrary.Reset();
        mLibrary.Script(row.mOperation, outcome, row.mNumber);
        CapturedLog log;
        std::string result = row.mCall(*mApi);
        EXPECT_THAT(LogText(log), ElementsAre("E " + line));
        return result;
    };
    for (const Row& row : rows) {
        std::string results = run(row, {1, 0}, row.mFailedLine + "0");
        results += run(row, {0, 7}, row.mFailedLine + "7");
        results += run(row, {1, 4}, row.mFailedLine + "4");
        if (!row.mNullLine.empty()) {
            results += run(row, kNull, row.mNullLine);
        }
        EXPECT_EQ(results, row.mResults) << row.mFailedLine;
    }
}

TEST_F(ClientCertInitializerApiTest, ChangesOfTheStoreReportTheirErrorNumber) {
    struct Row {
        Call mCall;
        std::string mOperation;
        std::uint8_t mCode;
        std::string mResult;
        std::vector<std::string> mLines;
    };
    const Row rows[] = {
        {Generate, "generateKeyPair", 12, "5", {}},
        {Install,
         "storeCertificateForKeyPair",
         9,
         "3",
         {"E InstallCertificate: storeCertificateForKeyPair failed: 9"}},
        {Install, "deleteKeyPair", 12, "0", {}},
        {Install, "moveKeyPair", 14, "3", {}},
        {Clear, "deleteKeyPair", 3, "5", {"I DeleteKeyPair: failed to delete keypair: 3"}},
        {Clear, "deleteKeyPair", 4, "0", {"I DeleteKeyPair: no keypair to delete"}},
        {Clear, "deleteKeyPair", 0, "0", {}},
    };
    for (const Row& row : rows) {
        mLibrary.Reset();
        mLibrary.Script(row.mOperation, {1, row.mCode});
        CapturedLog log;
        EXPECT_EQ(row.mCall(*mApi), row.mResult) << row.mOperation;
        EXPECT_EQ(LogText(log), row.mLines);
    }
}

TEST_F(ClientCertInitializerApiTest, RefusedArgumentsNeverReachTheStore) {
    struct Row {
        Call mCall;
        std::string mResult;
        std::string mLine;
    };
    const auto install = [](const char* source, const char* destination) {
        return [=](Api& api) {
            return Text(api.set_client_cert_and_move_key("chain", source, destination));
        };
    };
    const Row rows[] = {
        {[](Api& api) { return Text(api.generate_private_key("")); }, "4",
         "E generate_private_key: invalid certId"},
        {[](Api& api) { return Text(api.generate_csr("VIN:C003", "TIV")); }, "",
         "E generate_csr: invalid certId"},
        {[](Api& api) { return Text(api.generate_signature("TIV_CSR", {}, "")); }, "",
         "E generate_signature: Content is empty"},
        {[](Api& api) { return Text(api.generate_signature("TIV_CSR", {1}, "")); }, "",
         "E generate_signature: invalid certId: 'TIV_CSR'"},
        {[](Api& api) { return api.get_public_key("TIV_TMP"); }, "",
         "E get_public_key: invalid certId: TIV_TMP"},
        {[](Api& api) { return api.get_client_cert("KORU"); }, "",
         "E get_client_cert: invalid certId: 'KORU'"},
        {[](Api& api) { return api.get_root_cert_bundle("TIV"); }, "",
         "E get_root_cert_bundle: invalid trustStoreId: 'TIV'"},
        {install("", ""), "3", "E InstallCertificate: srcKeyId is empty"},
        {install("TIV_CSR", ""), "3", "E InstallCertificate: destKeyId is empty"},
    };
    for (const Row& row : rows) {
        CapturedLog log;
        EXPECT_EQ(row.mCall(*mApi), row.mResult);
        EXPECT_THAT(LogText(log), ElementsAre(row.mLine));
        EXPECT_THAT(mLibrary.mCalls, IsEmpty());
    }
}

TEST_F(ClientCertInitializerApiTest, ReadsComeFromTheStoreAndIdThatTheyName) {
    EXPECT_EQ(Cert(*mApi), "chain of TIV/TIV");
    EXPECT_EQ(mApi->get_client_cert("BASE"), "chain of KORU/ECU_BASE_CERT");
    EXPECT_EQ(Key(*mApi), "public key of TIV/TIV");
    EXPECT_EQ(mApi->get_public_key("TIV_CSR"), "public key of TIV/TIV_CSR");
    EXPECT_EQ(Root(*mApi), "certificate of KORU/PRODUCT_PKI_ROOT_CERT");
    EXPECT_EQ(Csr(*mApi), "request VIN:C003 0 TIV/TIV_CSR");
    EXPECT_EQ(Sign(*mApi), "c signed by TIV/TIV");
    EXPECT_EQ(mApi->get_koru_vin(), "");
}

TEST_F(ClientCertInitializerApiTest, GeneratingReplacesAnExistingKeyEvenIfItCannotBeDeleted) {
    EXPECT_EQ(Generate(*mApi), "0");
    EXPECT_THAT(mLibrary.mCalls,
                ElementsAre("makeKeyId TIV/TIV_CSR", "generateKeyPair TIV/TIV_CSR 2"));

    mLibrary.mCalls.clear();
    mLibrary.mKeyPairs = {"TIV/TIV_CSR"};
    mLibrary.Script("deleteKeyPair", {1, 12});
    CapturedLog log;
    EXPECT_EQ(Generate(*mApi), "0");
    EXPECT_THAT(mLibrary.mCalls, ElementsAre("makeKeyId TIV/TIV_CSR", "deleteKeyPair TIV/TIV_CSR",
                                             "generateKeyPair TIV/TIV_CSR 2"));
    EXPECT_THAT(LogText(log),
                ElementsAre("I generate_private_key: key ID already exists, deleting",
                            "I generate_private_key: failed to delete existing keypair: 12"));
}

TEST_F(ClientCertInitializerApiTest, InstallingStoresTheChainBeforeItTouchesTheAcceptedKey) {
    EXPECT_EQ(Install(*mApi), "0");
    EXPECT_THAT(mLibrary.mCalls,
                ElementsAre("makeKeyId TIV/TIV_CSR", "storeCertificateForKeyPair TIV/TIV_CSR chain",
                            "makeKeyId TIV/TIV", "deleteKeyPair TIV/TIV",
                            "moveKeyPair TIV/TIV_CSR TIV/TIV"));
    mLibrary.mCalls.clear();
    mLibrary.Script("storeCertificateForKeyPair", {1, 12});
    EXPECT_EQ(Install(*mApi), "5");
    EXPECT_THAT(mLibrary.mCalls, ElementsAre("makeKeyId TIV/TIV_CSR",
                                             "storeCertificateForKeyPair TIV/TIV_CSR chain"));
}

TEST_F(ClientCertInitializerApiTest, ResultCodesMapToErrorNumbers) {
    std::string mapped;
    for (const int code : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 255}) {
        mapped += Text(ClientCertInitializerAPIImpl::CryptoResultCodeToMockTeeError(
            static_cast<sec::crypto::common::CryptoResultCode>(code)));
    }
    EXPECT_EQ(mapped, "05534533533555355");
}

TEST_F(ClientCertInitializerApiTest, ConstructionFailsWithTheTextOfItsStepAndHoldsNothing) {
    struct Row {
        std::string mOperation;
        Outcome mOutcome;
        std::string mText;
    };
    const Row rows[] = {
        {"createTrustStoreManager", {1, 0}, "Failed to create TrustStoreManager"},
        {"createTrustStoreManager", kNull, "TrustStoreManager is null"},
        {"lookupTrustStore", kNull, "ClientCertStore is null"},
        {"lookupForKORUStore", {0, 7}, "KORUStore not found"},
        {"lookupForKORUStore", kNull, "KORUStore is null"},
    };
    const int liveStores = mLibrary.mLiveStores;
    for (const Row& row : rows) {
        mLibrary.Reset();
        EXPECT_EQ(ConstructionError(row.mOperation, row.mOutcome), row.mText);
        EXPECT_EQ(mLibrary.mLiveStores, liveStores);
        // A look-up that succeeds with a null object is no reason to create anything.
        EXPECT_EQ(mLibrary.Count("createTrustStore"), 0);
    }
}

TEST_F(ClientCertInitializerApiTest, TheClientStoreIsCreatedWhereThereIsNone) {
    CapturedLog log;
    EXPECT_EQ(ConstructionError("lookupTrustStore", {1, 4}), "");
    EXPECT_THAT(mLibrary.mCalls, testing::Contains("createTrustStore TIV"));
    EXPECT_THAT(LogText(log),
                ElementsAre("I ClientCertInitializerAPIImpl initialized succesfully."));
    EXPECT_EQ(ConstructionError("createTrustStore", {1, 0}), "Failed to create ClientCertStore");
}

}  // namespace

}  // namespace orv::tee
