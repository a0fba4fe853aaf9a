#pragma once

#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>
#include <openssl/types.h>

#include "orv_sec_crypto/store_administration.h"

namespace provision {

/// Which entry is meant; an empty store or kind fits any.
struct EntrySelector {
    std::string id;
    std::string store;
    /// "key" or "certificate".
    std::string kind;
};

/// The fields of a certificate.
struct CertificateText {
    std::string subject;
    std::string issuer;
    /// As "2026-11-21T08:00:00Z".
    std::string notBefore;
    std::string notAfter;
    std::string fingerprint;
};

/// `pki_support::PkiError` for a field that cannot be converted.
CertificateText ReadText(const X509& certificate);

/// As members of one object.
nlohmann::ordered_json ToMember(const CertificateText& text);

/// "key" or "certificate".
const char* KindName(orv::sec::crypto::host::EntryKind kind);

/// The lines of `show`: one for each certificate of an entry, and one for a key pair that has none.
/// Nine fields, separated by tabs: store, kind, id, position of the certificate (from 1; 0 without
/// one), subject, issuer, first and last moment of validity, SHA-256 fingerprint ("-" without a
/// certificate). An entry that does not parse has one line with "broken: " and the reason in place
/// of the subject.
std::string Describe(const std::vector<orv::sec::crypto::host::StoreEntry>& entries);

/// The same as JSON (docs/provisioning.md has the members).
std::string ToJson(const std::vector<orv::sec::crypto::host::StoreEntry>& entries);

/// JSON as it is printed; what is not UTF-8 in it is replaced.
std::string Print(const nlohmann::ordered_json& json);

/// The entries that fit the selector's store and kind, whatever their ids.
std::vector<orv::sec::crypto::host::StoreEntry> Filter(
    const std::vector<orv::sec::crypto::host::StoreEntry>& entries, const EntrySelector& selector);

/// The one entry that fits. `pki_support::PkiError` when there is none, or more than one.
orv::sec::crypto::host::StoreEntry Select(
    const std::vector<orv::sec::crypto::host::StoreEntry>& entries, const EntrySelector& selector);

}  // namespace provision
