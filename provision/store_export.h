#pragma once

#include <string>
#include <vector>

#include "orv_sec_crypto/store_administration.h"

namespace provision {

/// A public part of the store, in PEM.
struct PublicPart {
    /// Of its own among the parts of a store: store, kind and id, what is no letter, digit, "_" or
    /// "-" in them as %XX.
    std::string fileName;
    std::string pem;
};

enum class PartKind { kCertificates, kPublicKey };

/// The parts of one kind of all these entries that have one. Entries that do not parse are passed
/// over.
std::vector<PublicPart> PublicParts(const std::vector<orv::sec::crypto::host::StoreEntry>& entries,
                                    PartKind kind);

/// The part of one entry. `pki_support::PkiError` when it has none, or does not parse.
PublicPart RequirePart(const orv::sec::crypto::host::StoreEntry& entry, PartKind kind);

/// Writes each part into a file of its own (mode 0644) in a directory that exists, each whole or
/// not at all. Unless files may be replaced, nothing is written if one of them is there already.
/// `pki_support::PkiError` on failure.
void WriteParts(const std::string& directory, const std::vector<PublicPart>& parts,
                bool mayReplace);

/// The same for one file.
void WritePart(const std::string& path, const std::string& pem, bool mayReplace);

}  // namespace provision
