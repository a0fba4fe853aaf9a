#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <orv/sec/crypto/common/crypto_result_code.h>
#include <orv/sec/crypto/i_crypto_service_provider.h>
#include <orv/sec/crypto/store/i_koru_store.h>
#include <orv/sec/crypto/store/i_trust_store.h>

#include "certificates/client_cert_initializer_api.h"

namespace orv::tee::impl {

/// `ClientCertInitializerAPI` on the crypto library.
class ClientCertInitializerAPIImpl : public ClientCertInitializerAPI {
public:
    /// The process-wide instance, made at the first call and released at process exit, before the
    /// crypto library is cleaned up.
    static std::shared_ptr<ClientCertInitializerAPI> get_instance();

    /// The error number for a code of the crypto library, listed or not.
    static MockTeeError CryptoResultCodeToMockTeeError(
        orv::sec::crypto::common::CryptoResultCode code);

    /// Throws `std::runtime_error` when the library or a store is unavailable.
    ClientCertInitializerAPIImpl();
    ~ClientCertInitializerAPIImpl() override;
    ClientCertInitializerAPIImpl(const ClientCertInitializerAPIImpl&) = delete;
    ClientCertInitializerAPIImpl& operator=(const ClientCertInitializerAPIImpl&) = delete;

    MockTeeError generate_private_key(std::string certId) override;
    std::vector<std::uint8_t> generate_csr(std::string subject, std::string certId) override;
    std::vector<std::uint8_t> generate_signature(std::string certId,
                                                 std::vector<std::uint8_t> content,
                                                 std::string algorithm) override;
    std::string get_public_key(std::string certId) override;
    std::string get_client_cert(std::string certId) override;
    MockTeeError set_client_cert_and_move_key(std::string certificateChain, std::string srcKeyId,
                                              std::string destKeyId) override;
    std::string get_root_cert_bundle(std::string trustStoreId) override;
    std::string get_koru_vin() override;

private:
    void Init();
    void Deinit();
    /// True when the key pair is gone afterwards.
    bool DeleteKeyPair(const std::string& keyId);
    MockTeeError ClearClientCertStore(const std::string& keyId);
    MockTeeError InstallCertificate(const std::string& certificateChain,
                                    const std::string& srcKeyId, const std::string& destKeyId);

    std::shared_ptr<orv::sec::crypto::ICryptoServiceProvider> mCryptoLib;
    std::shared_ptr<orv::sec::crypto::store::ITrustStore> mClientCertStore;
    std::shared_ptr<orv::sec::crypto::store::IKORUStore> mKoruStore;
};

}  // namespace orv::tee::impl
