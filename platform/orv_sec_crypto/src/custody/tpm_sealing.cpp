#include "custody/tpm_sealing.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <openssl/crypto.h>
#include <tss2/tss2_esys.h>
#include <tss2/tss2_mu.h>
#include <tss2/tss2_rc.h>
#include <tss2/tss2_tctildr.h>

#include "errors/crypto_error.h"

namespace orv::sec::crypto {

using common::ByteVector;
using common::CryptoResultCode;

namespace {

constexpr std::uint8_t kSealedVersion = 1;
// What a format-1 response code has beside the error: the number of the parameter or handle.
constexpr TSS2_RC kErrorBits = TPM2_RC_FMT1 | 0x3f;

// At the higher levels the stack prints what it sends and receives, and with it the wrapping key.
// This runs while the process is loaded: later on, other threads may be reading the environment.
[[gnu::constructor]] void LowerLogLevelOfStack() {
    constexpr const char* kVariable = "TSS2_LOG";
    const char* levels = std::getenv(kVariable);
    if (levels == nullptr) {
        return;
    }
    for (const char* level : {"info", "debug", "trace"}) {
        if (::strcasestr(levels, level) != nullptr) {
            ::setenv(kVariable, "all+warning", 1);
            return;
        }
    }
}

struct EsysDeleter {
    void operator()(void* memory) const { Esys_Free(memory); }
};
template <typename T>
using EsysPtr = std::unique_ptr<T, EsysDeleter>;

CryptoError TpmError(const std::string& what) {
    return CryptoError(CryptoResultCode::kStorageError, what);
}

void Require(TSS2_RC code, const std::string& what) {
    if (code != TSS2_RC_SUCCESS) {
        throw TpmError(what + ": " + Tss2_RC_Decode(code));
    }
}

/// One session with the TPM, in which secrets cross the bus encrypted only: it is salted with a
/// value that only the storage key's TPM can decrypt, from which its keys are derived.
class TpmSession {
public:
    // The delegated constructor completes the object, so whatever fails here, the destructor closes
    // it.
    explicit TpmSession(const std::string& tcti) : TpmSession() { Open(tcti); }
    ~TpmSession() { Close(); }
    TpmSession(const TpmSession&) = delete;
    TpmSession& operator=(const TpmSession&) = delete;

    const TPM2B_NAME& StorageKeyName() const { return *mName; }

    void Seal(const std::uint8_t* secret, std::size_t size, TPM2B_PUBLIC& sealedPublic,
              TPM2B_PRIVATE& sealedPrivate) {
        TPM2B_SENSITIVE_CREATE sensitive{};
        sensitive.sensitive.data.size = static_cast<UINT16>(size);
        std::copy_n(secret, size, sensitive.sensitive.data.buffer);
        TPM2B_PUBLIC wanted{};
        wanted.publicArea.type = TPM2_ALG_KEYEDHASH;
        wanted.publicArea.nameAlg = TPM2_ALG_SHA256;
        wanted.publicArea.objectAttributes = TPMA_OBJECT_FIXEDTPM | TPMA_OBJECT_FIXEDPARENT |
                                             TPMA_OBJECT_USERWITHAUTH | TPMA_OBJECT_NODA;
        wanted.publicArea.parameters.keyedHashDetail.scheme.scheme = TPM2_ALG_NULL;
        TPM2B_PRIVATE* madePrivate = nullptr;
        TPM2B_PUBLIC* madePublic = nullptr;
        const TSS2_RC code = Esys_Create(mContext, mStorageKey, mSession, ESYS_TR_NONE,
                                         ESYS_TR_NONE, &sensitive, &wanted, &mNoData, &mNoRegisters,
                                         &madePrivate, &madePublic, nullptr, nullptr, nullptr);
        OPENSSL_cleanse(&sensitive, sizeof(sensitive));
        Require(code, "the TPM cannot seal the key");
        sealedPrivate = *EsysPtr<TPM2B_PRIVATE>(madePrivate);
        sealedPublic = *EsysPtr<TPM2B_PUBLIC>(madePublic);
    }

    void Unseal(const TPM2B_PUBLIC& sealedPublic, const TPM2B_PRIVATE& sealedPrivate,
                std::uint8_t* secret, std::size_t size) {
        const TSS2_RC code = Esys_Load(mContext, mStorageKey, mSession, ESYS_TR_NONE, ESYS_TR_NONE,
                                       &sealedPrivate, &sealedPublic, &mSealed);
        if ((code & kErrorBits) == TPM2_RC_INTEGRITY) {
            throw TpmError("sealed key refused: it was changed, or is not this TPM's");
        }
        Require(code, "the TPM cannot load the sealed key");
        TPM2B_SENSITIVE_DATA* data = nullptr;
        Require(Esys_Unseal(mContext, mSealed, mSession, ESYS_TR_NONE, ESYS_TR_NONE, &data),
                "the TPM cannot unseal the key");
        const EsysPtr<TPM2B_SENSITIVE_DATA> owner(data);
        const bool fits = data->size == size;
        if (fits) {
            std::copy_n(data->buffer, size, secret);
        }
        OPENSSL_cleanse(data, sizeof(*data));
        OverwriteResponse(size);
        if (!fits) {
            throw TpmError("sealed key refused: it is of another size");
        }
    }

private:
    TpmSession() = default;

    void Open(const std::string& tcti) {
        Require(Tss2_TctiLdr_Initialize(tcti.c_str(), &mTcti),
                "TPM '" + tcti + "' cannot be reached");
        Require(Esys_Initialize(&mContext, mTcti, nullptr), "TPM '" + tcti + "' cannot be used");
        MakeStorageKey(tcti);
        StartSession();
    }

    void MakeStorageKey(const std::string& tcti) {
        TPM2B_PUBLIC wanted{};
        TPMT_PUBLIC& area = wanted.publicArea;
        area.type = TPM2_ALG_ECC;
        area.nameAlg = TPM2_ALG_SHA256;
        area.objectAttributes = TPMA_OBJECT_FIXEDTPM | TPMA_OBJECT_FIXEDPARENT |
                                TPMA_OBJECT_SENSITIVEDATAORIGIN | TPMA_OBJECT_USERWITHAUTH |
                                TPMA_OBJECT_NODA | TPMA_OBJECT_RESTRICTED | TPMA_OBJECT_DECRYPT;
        area.parameters.eccDetail.symmetric = {TPM2_ALG_AES, {128}, {TPM2_ALG_CFB}};
        area.parameters.eccDetail.scheme.scheme = TPM2_ALG_NULL;
        area.parameters.eccDetail.curveID = TPM2_ECC_NIST_P256;
        area.parameters.eccDetail.kdf.scheme = TPM2_ALG_NULL;
        const TPM2B_SENSITIVE_CREATE noPassword{};
        Require(Esys_CreatePrimary(mContext, ESYS_TR_RH_OWNER, ESYS_TR_PASSWORD, ESYS_TR_NONE,
                                   ESYS_TR_NONE, &noPassword, &wanted, &mNoData, &mNoRegisters,
                                   &mStorageKey, nullptr, nullptr, nullptr, nullptr),
                "TPM '" + tcti + "' makes no storage key");
        TPM2B_NAME* name = nullptr;
        Require(Esys_TR_GetName(mContext, mStorageKey, &name), "the storage key has no name");
        mName.reset(name);
    }

    void StartSession() {
        const TPMT_SYM_DEF cipher{TPM2_ALG_AES, {128}, {TPM2_ALG_CFB}};
        Require(Esys_StartAuthSession(mContext, mStorageKey, ESYS_TR_NONE, ESYS_TR_NONE,
                                      ESYS_TR_NONE, ESYS_TR_NONE, nullptr, TPM2_SE_HMAC, &cipher,
                                      TPM2_ALG_SHA256, &mSession),
                "the TPM starts no session");
        const TPMA_SESSION encrypted =
            TPMA_SESSION_DECRYPT | TPMA_SESSION_ENCRYPT | TPMA_SESSION_CONTINUESESSION;
        Require(Esys_TRSess_SetAttributes(mContext, mSession, encrypted, 0xff),
                "the TPM session cannot be set up");
    }

    // The stack decrypts a response in its own buffer, which it does not wipe. An answer of the
    // same shape takes the place of the last one.
    void OverwriteResponse(std::size_t size) {
        TPM2B_DIGEST* random = nullptr;
        if (Esys_GetRandom(mContext, mSession, ESYS_TR_NONE, ESYS_TR_NONE,
                           static_cast<UINT16>(size), &random) == TSS2_RC_SUCCESS) {
            Esys_Free(random);
        }
    }

    void Close() {
        for (ESYS_TR* handle : {&mSealed, &mSession, &mStorageKey}) {
            if (*handle != ESYS_TR_NONE) {
                Esys_FlushContext(mContext, *handle);
            }
        }
        Esys_Finalize(&mContext);
        Tss2_TctiLdr_Finalize(&mTcti);
    }

    const TPM2B_DATA mNoData{};
    const TPML_PCR_SELECTION mNoRegisters{};
    TSS2_TCTI_CONTEXT* mTcti = nullptr;
    ESYS_CONTEXT* mContext = nullptr;
    ESYS_TR mStorageKey = ESYS_TR_NONE;
    ESYS_TR mSession = ESYS_TR_NONE;
    ESYS_TR mSealed = ESYS_TR_NONE;
    EsysPtr<TPM2B_NAME> mName;
};

bool SameName(const TPM2B_NAME& one, const TPM2B_NAME& other) {
    return one.size == other.size && std::equal(one.name, one.name + one.size, other.name);
}

}  // namespace

ByteVector SealByTpm(const std::string& tcti, const std::uint8_t* secret, std::size_t size) {
    TpmSession session(tcti);
    TPM2B_PUBLIC sealedPublic{};
    TPM2B_PRIVATE sealedPrivate{};
    session.Seal(secret, size, sealedPublic, sealedPrivate);

    ByteVector sealed(kMaxSealedBytes);
    sealed[0] = kSealedVersion;
    std::size_t offset = 1;
    if (Tss2_MU_TPM2B_NAME_Marshal(&session.StorageKeyName(), sealed.data(), sealed.size(),
                                   &offset) != TSS2_RC_SUCCESS ||
        Tss2_MU_TPM2B_PUBLIC_Marshal(&sealedPublic, sealed.data(), sealed.size(), &offset) !=
            TSS2_RC_SUCCESS ||
        Tss2_MU_TPM2B_PRIVATE_Marshal(&sealedPrivate, sealed.data(), sealed.size(), &offset) !=
            TSS2_RC_SUCCESS) {
        throw TpmError("the sealed key cannot be encoded");
    }
    sealed.resize(offset);
    return sealed;
}

void UnsealByTpm(const std::string& tcti, const ByteVector& sealed, std::uint8_t* secret,
                 std::size_t size) {
    TPM2B_NAME storageKeyName{};
    TPM2B_PUBLIC sealedPublic{};
    TPM2B_PRIVATE sealedPrivate{};
    std::size_t offset = 1;
    if (sealed.empty() || sealed[0] != kSealedVersion ||
        Tss2_MU_TPM2B_NAME_Unmarshal(sealed.data(), sealed.size(), &offset, &storageKeyName) !=
            TSS2_RC_SUCCESS ||
        Tss2_MU_TPM2B_PUBLIC_Unmarshal(sealed.data(), sealed.size(), &offset, &sealedPublic) !=
            TSS2_RC_SUCCESS ||
        Tss2_MU_TPM2B_PRIVATE_Unmarshal(sealed.data(), sealed.size(), &offset, &sealedPrivate) !=
            TSS2_RC_SUCCESS ||
        offset != sealed.size()) {
        throw TpmError("key file refused: it holds no sealed key");
    }
    TpmSession session(tcti);
    // Checked before the key is asked for, so that nothing else on the bus can impersonate the TPM.
    if (!SameName(session.StorageKeyName(), storageKeyName)) {
        throw TpmError("sealed key refused: TPM '" + tcti + "' is another one, or was cleared");
    }
    session.Unseal(sealedPublic, sealedPrivate, secret, size);
}

}  // namespace orv::sec::crypto
