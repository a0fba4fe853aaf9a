#include "custody/key_storage_file.h"

#include <initializer_list>
#include <set>
#include <string_view>

#include <nlohmann/json.hpp>

#include "errors/crypto_error.h"
#include "files/protected_file.h"

namespace orv::sec::crypto {

using common::CryptoResultCode;
using host::KeyStorage;
using host::TokenKeyStorage;
using host::TpmKeyStorage;
using nlohmann::json;

namespace {

constexpr FileDemands kDemands{"configuration", FileProtection::kOwnersOnlyToWrite, 1, 8192};
constexpr std::size_t kMaxTextBytes = 1024;
// The label of a token has 32 bytes (PKCS #11, CK_TOKEN_INFO).
constexpr std::size_t kMaxTokenLabelBytes = 32;
constexpr const char* kTpm = "tpm";
constexpr const char* kToken = "pkcs11";

std::string PathIn(const std::string& directory) {
    return directory + "/store.json";
}

CryptoError Invalid(const std::string& why) {
    return CryptoError(CryptoResultCode::kInvalidArgument, why);
}

bool IsUtf8(const std::string& text) {
    try {
        static_cast<void>(json(text).dump());
        return true;
    } catch (const json::type_error&) {
        return false;
    }
}

void CheckText(const char* name, const std::string& text, std::size_t maximum = kMaxTextBytes) {
    if (text.empty() || text.size() > maximum || text.find('\0') != std::string::npos) {
        throw Invalid(std::string(name) + " must have 1 to " + std::to_string(maximum) +
                      " characters");
    }
    // What is tried must be what is saved.
    if (!IsUtf8(text)) {
        throw Invalid(std::string(name) + " is no UTF-8 text");
    }
}

void CheckToken(const TokenKeyStorage& token) {
    CheckText("module", token.module);
    CheckText("pinFile", token.pinFile);
    if (token.module.front() != '/') {
        throw Invalid("module must be an absolute path");
    }
    if (token.token.empty() != token.slot.has_value()) {
        throw Invalid("either token or slot must be given");
    }
    if (!token.slot) {
        CheckText("token", token.token, kMaxTokenLabelBytes);
    }
}

/// The members of one JSON object, each of which must be read.
class Members {
public:
    explicit Members(const json& object) : mObject(object) {
        if (!object.is_object()) {
            throw Invalid("no JSON object");
        }
    }

    bool Has(const char* name) const { return mObject.contains(name); }

    std::string TakeText(const char* name) {
        mTaken.insert(name);
        const auto member = mObject.find(name);
        if (member == mObject.end() || !member->is_string()) {
            throw Invalid(std::string(name) + " must be a string");
        }
        return member->get<std::string>();
    }

    std::uint64_t TakeNumber(const char* name) {
        mTaken.insert(name);
        const auto member = mObject.find(name);
        if (member == mObject.end() || !member->is_number_unsigned()) {
            throw Invalid(std::string(name) + " must be a number from 0 on");
        }
        return member->get<std::uint64_t>();
    }

    void CheckAllTaken() const {
        for (const auto& item : mObject.items()) {
            if (mTaken.count(item.key()) == 0) {
                throw Invalid("unknown member '" + item.key() + "'");
            }
        }
    }

private:
    const json& mObject;
    std::set<std::string> mTaken;
};

KeyStorage Parse(const json& object) {
    Members members(object);
    const std::string kind = members.TakeText("keys");
    KeyStorage storage;
    if (kind == kTpm) {
        storage = TpmKeyStorage{members.TakeText("tcti")};
    } else if (kind == kToken) {
        TokenKeyStorage token;
        token.module = members.TakeText("module");
        if (members.Has("token")) {
            token.token = members.TakeText("token");
        }
        if (members.Has("slot")) {
            token.slot = members.TakeNumber("slot");
        }
        token.pinFile = members.TakeText("pinFile");
        token.label = members.TakeText("label");
        CheckText("label", token.label);
        storage = token;
    } else {
        throw Invalid(std::string("keys must be \"") + kTpm + "\" or \"" + kToken + "\"");
    }
    members.CheckAllTaken();
    CheckKeyStorage(storage);
    return storage;
}

json ToJson(const TpmKeyStorage& tpm) {
    return {{"keys", kTpm}, {"tcti", tpm.tcti}};
}

json ToJson(const TokenKeyStorage& token) {
    json object{{"keys", kToken},
                {"module", token.module},
                {"pinFile", token.pinFile},
                {"label", token.label}};
    if (token.slot) {
        object["slot"] = *token.slot;
    } else {
        object["token"] = token.token;
    }
    return object;
}

}  // namespace

void CheckKeyStorage(const KeyStorage& storage) {
    if (const auto* tpm = std::get_if<TpmKeyStorage>(&storage)) {
        CheckText("tcti", tpm->tcti);
    } else if (const auto* token = std::get_if<TokenKeyStorage>(&storage)) {
        CheckToken(*token);
    }
}

bool SameKeyStorage(const KeyStorage& one, const KeyStorage& other) {
    if (one.index() != other.index()) {
        return false;
    }
    if (const auto* tpm = std::get_if<TpmKeyStorage>(&one)) {
        return tpm->tcti == std::get<TpmKeyStorage>(other).tcti;
    }
    if (const auto* token = std::get_if<TokenKeyStorage>(&one)) {
        const auto& second = std::get<TokenKeyStorage>(other);
        return token->module == second.module && token->token == second.token &&
               token->slot == second.slot && token->pinFile == second.pinFile;
    }
    return true;
}

std::optional<KeyStorage> LoadKeyStorage(const std::string& directory) {
    const std::string path = PathIn(directory);
    const auto file = ProtectedFile::Open(path, kDemands);
    if (file == nullptr) {
        return std::nullopt;
    }
    const auto text = file->Read();
    try {
        return Parse(json::parse(text.begin(), text.end()));
    } catch (const json::exception& error) {
        throw CryptoError(CryptoResultCode::kStorageError,
                          path + ": configuration refused: " + error.what());
    } catch (const CryptoError& error) {
        throw CryptoError(CryptoResultCode::kStorageError,
                          path + ": configuration refused: " + error.what());
    }
}

void SaveKeyStorage(const std::string& directory, const KeyStorage& storage) {
    json object;
    if (const auto* tpm = std::get_if<TpmKeyStorage>(&storage)) {
        object = ToJson(*tpm);
    } else if (const auto* token = std::get_if<TokenKeyStorage>(&storage)) {
        object = ToJson(*token);
    } else {
        return;
    }
    const std::string text = object.dump(2) + "\n";
    RemoveProtectedLeftover(PathIn(directory));
    ReplaceProtectedFile(PathIn(directory), reinterpret_cast<const std::uint8_t*>(text.data()),
                         text.size());
}

}  // namespace orv::sec::crypto
