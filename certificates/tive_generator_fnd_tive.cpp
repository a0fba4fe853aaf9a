#include "certificates/tive_generator_fnd_tive.h"

#include <memory>
#include <utility>

#include <orv/sec/crypto/i_crypto_service_provider.h>
#include <orv/sec/crypto/operation/i_trust_store_manager.h>
#include <orv/sec/tive/auxiliary_data.h>
#include <orv/sec/tive/factories/signed_container_factory.h>
#include <orv/sec/tive/signature_algorithm_type.h>

#include "certificates/certificate_ids.h"
#include "certificates/crypto_api_instance.h"
#include "certificates/library_results.h"
#include "logging/qel_logging.h"

namespace vintrel {

namespace {

using qel_logging::QELLogging;

constexpr const char* kOperation = "ConstructContainer";

void LogError(const char* text) {
    QELLogging::LogError(kOperation, text);
}

}  // namespace

const std::string TiveGeneratorFndTive::kAuxiliaryType;
const std::vector<std::uint8_t> TiveGeneratorFndTive::kAuxiliaryBytes;
const std::string TiveGeneratorFndTive::kAuxiliaryDescription;

std::shared_ptr<TiveGeneratorIf> TiveGeneratorIf::Create() {
    return std::make_shared<TiveGeneratorFndTive>();
}

std::string TiveGeneratorFndTive::ConstructContainer(const std::vector<std::uint8_t>& payload) {
    const auto provider = CryptoApiInstance::GetCryptoApiInstance();
    if (!provider) {
        LogError(": Crypto API instance is null");
        return {};
    }
    const auto manager =
        TakeObject(provider->createTrustStoreManager(), kOperation,
                   ": createTrustStoreManager failed: ", ": createTrustStoreManager returned null");
    if (!manager) {
        return {};
    }
    const auto koruStore =
        TakeObject(manager->lookupForKORUStore(), kOperation,
                   ": lookupForKORUStore failed: ", ": lookupForKORUStore returned null");
    if (!koruStore) {
        return {};
    }
    const auto trustStore =
        TakeObject(FindOrCreateTrustStore(*manager, kKeyIdTiv), kOperation,
                   ": createTrustStore failed: ", ": createTrustStore returned null");
    if (!trustStore) {
        return {};
    }
    const auto keyHandle = TakeObject(koruStore->makeKeyId(kKoruCertIdEcuBase), kOperation,
                                      ": makeKeyId failed: ", ": makeKeyId returned null");
    if (!keyHandle) {
        return {};
    }
    const orv::sec::tive::factories::SignedContainerFactory factory(provider, koruStore,
                                                                    trustStore);
    const auto encoder =
        TakeObject(factory.CreateCertificateChainEncoder(
                       orv::sec::tive::SignatureAlgorithmType::kEcdsaSha256, keyHandle, false),
                   kOperation, ": CreateCertificateChainEncoder failed: ",
                   ": CreateCertificateChainEncoder returned null");
    if (!encoder) {
        return {};
    }
    const orv::sec::tive::AuxiliaryData auxiliaryData{kAuxiliaryType, 0, kAuxiliaryBytes,
                                                      kAuxiliaryDescription};
    auto container = TakeValue(encoder->encode(payload, auxiliaryData), kOperation,
                               ": TIVE container generation failed: ");
    if (!container) {
        return {};
    }
    if (container->empty()) {
        LogError(": empty TIVE container was returned");
        return {};
    }
    QELLogging::LogInfo("TiveGenerator: The TIVE Container was created successfully");
    return std::move(*container);
}

}  // namespace vintrel
