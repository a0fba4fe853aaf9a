#include "certificates/client_cert_initializer_api.h"

#include <memory>

#include "certificates/client_cert_initializer_api_impl.h"
#include "certificates/scripted_library_test.h"

namespace orv::tee {

namespace {

using impl::ClientCertInitializerAPIImpl;
using testing::ElementsAre;

std::string Text(const std::vector<std::uint8_t>& bytes) {
    return {bytes.begin(), bytes.end()};
}

class ClientCertInitializerApiTest : public testing_support::ScriptedLibraryTest {
protected:
    ClientCertInitializerApiTest() {
        mApi = std::make_unique<ClientCertInitializerAPIImpl>();
        mLibrary.mCalls.clear();
    }

    std::unique_ptr<ClientCertInitializerAPIImpl> mApi;
};

TEST_F(ClientCertInitializerApiTest, RefusedArgumentsNeverReachTheStore) {
    CapturedLog log;
    EXPECT_EQ(mApi->generate_private_key(""), MockTeeError::kNotFound);
    EXPECT_EQ(Text(mApi->generate_csr("VIN:C003", "TIV")), "");
    EXPECT_EQ(Text(mApi->generate_signature("TIV_CSR", {}, "")), "");
    EXPECT_EQ(Text(mApi->generate_signature("TIV_CSR", {1}, "")), "");
    EXPECT_EQ(mApi->get_public_key("TIV_TMP"), "");
    EXPECT_EQ(mApi->get_client_cert("KORU"), "");
    EXPECT_EQ(mApi->get_root_cert_bundle("TIV"), "");
    EXPECT_EQ(mApi->set_client_cert_and_move_key("chain", "", ""), MockTeeError::kInvalidCall);
    EXPECT_EQ(mApi->set_client_cert_and_move_key("chain", "A", ""), MockTeeError::kInvalidCall);
    EXPECT_THAT(log.Lines(), ElementsAre("E generate_private_key: invalid certId",
                                         "E generate_csr: invalid certId",
                                         "E generate_signature: Content is empty",
                                         "E generate_signature: invalid certId: 'TIV_CSR'",
                                         "E get_public_key: invalid certId: TIV_TMP",
                                         "E get_client_cert: invalid certId: 'KORU'",
                                         "E get_root_cert_bundle: invalid trustStoreId: 'TIV'",
                                         "E InstallCertificate: srcKeyId is empty",
                                         "E InstallCertificate: destKeyId is empty"));
    EXPECT_EQ(mApi->get_koru_vin(), "");
    EXPECT_THAT(mLibrary.mCalls, testing::IsEmpty());
}

TEST_F(ClientCertInitializerApiTest, ClearingWithNothingToClearIsASuccess) {
    mLibrary.Script("deleteKeyPair", {1, 4});
    CapturedLog log;
    EXPECT_EQ(mApi->set_client_cert_and_move_key("", "ignored", "TIV"), MockTeeError::kSuccess);
    EXPECT_THAT(log.Lines(), ElementsAre("I DeleteKeyPair: no keypair to delete"));
}

TEST_F(ClientCertInitializerApiTest, ResultCodesMapToErrorNumbers) {
    std::string mapped;
    for (const int code : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 255}) {
        mapped += std::to_string(
            static_cast<int>(ClientCertInitializerAPIImpl::CryptoResultCodeToMockTeeError(
                static_cast<sec::crypto::common::CryptoResultCode>(code))));
    }
    EXPECT_EQ(mapped, "05534533533555355");
}

}  // namespace

}  // namespace orv::tee
