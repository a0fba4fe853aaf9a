#pragma once

#include <string>
#include <vector>

#include "orv_sec_crypto/store_administration.h"

namespace provision {

/// Which entry is meant; an empty store or kind fits any.
struct EntrySelector {
    std::string id;
    std::string store;
    /// "key" or "certificate".
    std::string kind;
};

/// The lines of `show`: one for each certificate of an entry, and one for a key pair that has none.
/// Nine fields, separated by tabs: store, kind, id, position of the certificate (from 1; 0 without
/// one), subject, issuer, first and last moment of validity, SHA-256 fingerprint ("-" without a
/// certificate).
std::string Describe(const std::vector<orv::sec::crypto::host::StoreEntry>& entries);

/// The entries that fit the selector's store and kind, whatever their ids.
std::vector<orv::sec::crypto::host::StoreEntry> Filter(
    const std::vector<orv::sec::crypto::host::StoreEntry>& entries, const EntrySelector& selector);

/// The one entry that fits. `simulator::pki::PkiError` when there is none, or more than one.
orv::sec::crypto::host::StoreEntry Select(
    const std::vector<orv::sec::crypto::host::StoreEntry>& entries, const EntrySelector& selector);

}  // namespace provision
