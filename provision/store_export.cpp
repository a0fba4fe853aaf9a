#include "provision/store_export.h"

#include <array>
#include <climits>
#include <cstdio>
#include <filesystem>
#include <string_view>
#include <system_error>

#include <pki_support/certificates.h>
#include <pki_support/file_access.h>
#include <pki_support/pki_error.h>

#include "provision/store_report.h"

namespace provision {

using orv::sec::crypto::host::StoreEntry;
using pki_support::PkiError;
using posix::ExistingFile;

namespace {

// The temporary file beside it has seven characters more.
constexpr std::size_t kMaxFileName = NAME_MAX - 7;
constexpr std::string_view kPlain =
    "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz_-";

std::string Escape(const std::string& name) {
    std::string escaped;
    for (const char letter : name) {
        if (kPlain.find(letter) != std::string_view::npos) {
            escaped += letter;
            continue;
        }
        std::array<char, 4> code{};
        std::snprintf(code.data(), code.size(), "%%%02X", static_cast<unsigned char>(letter));
        escaped += code.data();
    }
    return escaped;
}

std::string FileName(const StoreEntry& entry, PartKind kind) {
    return Escape(entry.store) + "." + KindName(entry.kind) + "." + Escape(entry.id) +
           (kind == PartKind::kPublicKey ? ".public.pem" : ".pem");
}

bool HasPart(const StoreEntry& entry, PartKind kind) {
    return !(kind == PartKind::kPublicKey ? entry.publicKey : entry.certificateChain).empty();
}

}  // namespace

std::vector<PublicPart> PublicParts(const std::vector<StoreEntry>& entries, PartKind kind) {
    std::vector<PublicPart> parts;
    for (const StoreEntry& entry : entries) {
        if (HasPart(entry, kind)) {
            parts.push_back(RequirePart(entry, kind));
        }
    }
    return parts;
}

PublicPart RequirePart(const StoreEntry& entry, PartKind kind) {
    if (!HasPart(entry, kind)) {
        throw PkiError("the entry '" + entry.id + "' " +
                       (!entry.fault.empty()           ? "does not parse: " + entry.fault
                        : kind == PartKind::kPublicKey ? "is no key pair"
                                                       : "has no certificate"));
    }
    return {FileName(entry, kind), kind == PartKind::kPublicKey
                                       ? pki_support::PublicKeyToPem(entry.publicKey)
                                       : entry.certificateChain};
}

void WritePart(const std::string& path, const std::string& pem, bool mayReplace) {
    pki_support::WriteFile(path, pem, pki_support::kPublicMode,
                           mayReplace ? ExistingFile::kIsReplaced : ExistingFile::kIsKept);
}

void WriteParts(const std::string& directory, const std::vector<PublicPart>& parts,
                bool mayReplace) {
    const std::filesystem::path target(directory);
    for (const PublicPart& part : parts) {
        if (part.fileName.size() > kMaxFileName) {
            throw PkiError((target / part.fileName).string() + ": File name too long");
        }
        std::error_code ignored;
        if (!mayReplace && std::filesystem::exists(target / part.fileName, ignored)) {
            throw PkiError((target / part.fileName).string() + ": File exists");
        }
    }
    for (const PublicPart& part : parts) {
        WritePart((target / part.fileName).string(), part.pem, mayReplace);
    }
}

}  // namespace provision
