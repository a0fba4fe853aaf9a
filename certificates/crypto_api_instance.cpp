#include "certificates/crypto_api_instance.h"

#include <mutex>

#include <orv/sec/crypto/crypto_lib.h>

#include "certificates/library_results.h"
#include "logging/qel_logging.h"
#include "logging/qel_logging_api.h"

namespace vintrel {

namespace {

struct InstanceHolder {
    // The log has to outlive the holder, whose destruction may write a line; the question makes
    // the log complete.
    InstanceHolder() {
        qel_logging::QELLoggingApi::GetInstance().IsLoggingEnabled(
            qel_logging::EQELLogLevel::kError);
    }

    std::mutex mMutex;
    std::shared_ptr<CryptoApiInstance> mInstance;
};

InstanceHolder& Holder() {
    static InstanceHolder holder;
    return holder;
}

}  // namespace

std::shared_ptr<orv::sec::crypto::ICryptoServiceProvider>
CryptoApiInstance::GetCryptoApiInstance() {
    InstanceHolder& holder = Holder();
    const std::lock_guard<std::mutex> lock(holder.mMutex);
    if (!holder.mInstance) {
        holder.mInstance = std::make_shared<CryptoApiInstance>();
    }
    return holder.mInstance->mCryptoServiceProvider;
}

CryptoApiInstance::CryptoApiInstance() {
    mCryptoServiceProvider =
        RequireObject(orv::sec::crypto::initCryptoLib(), "Failed to initialize Crypto Library API",
                      "initCryptoLib returned null");
    qel_logging::QELLogging::LogInfo("Crypto API initialized successfully");
}

CryptoApiInstance::~CryptoApiInstance() {
    if (orv::sec::crypto::cleanupCryptoLib() !=
        orv::sec::crypto::common::CryptoResultCode::kSuccess) {
        qel_logging::QELLogging::LogError("Failed to cleanup Crypto Library API");
    }
    mCryptoServiceProvider.reset();
}

}  // namespace vintrel
