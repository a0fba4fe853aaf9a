#include "custody/pkcs11_module.h"

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>

#include <dlfcn.h>
#include <unistd.h>

#include "errors/crypto_error.h"

namespace orv::sec::crypto {

using common::CryptoResultCode;

namespace {

// Never destroyed: a store may be closed by the destructor of a static object.
struct LoadedModules {
    // Which process loaded the last one. A child of a fork must not wait for a mutex: the thread
    // that held it does not exist there.
    std::atomic<pid_t> owner{0};
    std::mutex mutex;
    std::map<std::string, std::unique_ptr<Pkcs11Module>> byPath;
};

LoadedModules& Loaded() {
    static auto* const loaded = new LoadedModules();
    return *loaded;
}

CryptoError ModuleError(const std::string& path, const std::string& why) {
    return CryptoError(CryptoResultCode::kStorageError, "PKCS #11 module " + path + ": " + why);
}

struct NamedValue {
    CK_RV value;
    const char* name;
};

constexpr std::array<NamedValue, 25> kNames{{
    {CKR_HOST_MEMORY, "CKR_HOST_MEMORY"},
    {CKR_SLOT_ID_INVALID, "CKR_SLOT_ID_INVALID"},
    {CKR_GENERAL_ERROR, "CKR_GENERAL_ERROR"},
    {CKR_FUNCTION_FAILED, "CKR_FUNCTION_FAILED"},
    {CKR_ATTRIBUTE_TYPE_INVALID, "CKR_ATTRIBUTE_TYPE_INVALID"},
    {CKR_ATTRIBUTE_VALUE_INVALID, "CKR_ATTRIBUTE_VALUE_INVALID"},
    {CKR_DEVICE_ERROR, "CKR_DEVICE_ERROR"},
    {CKR_DEVICE_MEMORY, "CKR_DEVICE_MEMORY (the token is full)"},
    {CKR_DEVICE_REMOVED, "CKR_DEVICE_REMOVED"},
    {CKR_KEY_HANDLE_INVALID, "CKR_KEY_HANDLE_INVALID"},
    {CKR_MECHANISM_INVALID, "CKR_MECHANISM_INVALID"},
    {CKR_OBJECT_HANDLE_INVALID, "CKR_OBJECT_HANDLE_INVALID"},
    {CKR_PIN_INCORRECT, "CKR_PIN_INCORRECT"},
    {CKR_PIN_INVALID, "CKR_PIN_INVALID"},
    {CKR_PIN_LEN_RANGE, "CKR_PIN_LEN_RANGE"},
    {CKR_PIN_EXPIRED, "CKR_PIN_EXPIRED"},
    {CKR_PIN_LOCKED, "CKR_PIN_LOCKED"},
    {CKR_SESSION_CLOSED, "CKR_SESSION_CLOSED"},
    {CKR_SESSION_HANDLE_INVALID, "CKR_SESSION_HANDLE_INVALID"},
    {CKR_TEMPLATE_INCONSISTENT, "CKR_TEMPLATE_INCONSISTENT"},
    {CKR_TOKEN_NOT_PRESENT, "CKR_TOKEN_NOT_PRESENT"},
    {CKR_TOKEN_WRITE_PROTECTED, "CKR_TOKEN_WRITE_PROTECTED"},
    {CKR_USER_NOT_LOGGED_IN, "CKR_USER_NOT_LOGGED_IN"},
    {CKR_USER_PIN_NOT_INITIALIZED, "CKR_USER_PIN_NOT_INITIALIZED"},
    {CKR_CRYPTOKI_NOT_INITIALIZED, "CKR_CRYPTOKI_NOT_INITIALIZED"},
}};

}  // namespace

std::string DescribeReturnValue(CK_RV value) {
    for (const NamedValue& known : kNames) {
        if (known.value == value) {
            return known.name;
        }
    }
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "CKR 0x%08lx", value);
    return text.data();
}

Pkcs11Module::Pkcs11Module(const std::string& path) : mPath(path), mOwner(::getpid()) {}

Pkcs11Module& Pkcs11Module::Load(const std::string& path) {
    LoadedModules& loaded = Loaded();
    const std::lock_guard<std::mutex> lock(loaded.mutex);
    const auto known = loaded.byPath.find(path);
    if (known != loaded.byPath.end()) {
        return *known->second;
    }
    std::unique_ptr<Pkcs11Module> module(new Pkcs11Module(path));
    module->Initialize();
    // Registered after the module's libraries have registered theirs, so that this runs before.
    std::atexit(FinalizeAll);
    loaded.owner = ::getpid();
    return *loaded.byPath.emplace(path, std::move(module)).first->second;
}

void Pkcs11Module::Initialize() {
    // Never unloaded: what the module has registered for the end of the process stays valid.
    void* const library = ::dlopen(mPath.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (library == nullptr) {
        throw ModuleError(mPath, std::string("cannot be loaded: ") + ::dlerror());
    }
    const auto getList =
        reinterpret_cast<CK_C_GetFunctionList>(::dlsym(library, "C_GetFunctionList"));
    CK_FUNCTION_LIST* functions = nullptr;
    if (getList == nullptr || getList(&functions) != CKR_OK || functions == nullptr) {
        throw ModuleError(mPath, "is no PKCS #11 module");
    }
    CK_C_INITIALIZE_ARGS arguments{};
    arguments.flags = CKF_OS_LOCKING_OK;
    const CK_RV value = functions->C_Initialize(&arguments);
    if (value != CKR_OK && value != CKR_CRYPTOKI_ALREADY_INITIALIZED) {
        throw ModuleError(mPath, "cannot be initialised: " + DescribeReturnValue(value));
    }
    mIsFinalizedByUs = value == CKR_OK;
    mFunctions = functions;
}

bool Pkcs11Module::IsUsable() const {
    return !mHasEnded && mOwner == ::getpid();
}

CK_FUNCTION_LIST& Pkcs11Module::Functions() const {
    if (!IsUsable()) {
        throw ModuleError(mPath, mHasEnded ? "the process ends" : "belongs to the parent process");
    }
    return *mFunctions;
}

void Pkcs11Module::Finalize() {
    if (mOwner != ::getpid()) {
        return;
    }
    const std::lock_guard<std::mutex> lock(mMutex);
    if (!mHasEnded && mIsFinalizedByUs) {
        mFunctions->C_Finalize(nullptr);
    }
    mHasEnded = true;
}

void Pkcs11Module::FinalizeAll() {
    LoadedModules& loaded = Loaded();
    if (loaded.owner != ::getpid()) {
        return;
    }
    const std::lock_guard<std::mutex> lock(loaded.mutex);
    for (const auto& [path, module] : loaded.byPath) {
        module->Finalize();
    }
}

}  // namespace orv::sec::crypto
