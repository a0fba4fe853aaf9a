#include "tools/provision/store_report.h"

#include <algorithm>
#include <iterator>

#include "simulator/pki/certificates.h"
#include "simulator/pki/pki_error.h"

namespace provision {

namespace {

using orv::sec::crypto::host::EntryKind;
using orv::sec::crypto::host::StoreEntry;
using simulator::pki::PkiError;

const char* KindName(const StoreEntry& entry) {
    return entry.kind == EntryKind::kKeyPair ? "key" : "certificate";
}

std::string Prefix(const StoreEntry& entry, std::size_t position) {
    return entry.store + "\t" + KindName(entry) + "\t" + entry.id + "\t" + std::to_string(position);
}

std::string Describe(const X509& certificate) {
    using simulator::pki::ToText;
    return "\t" + ToText(*X509_get_subject_name(&certificate)) + "\t" +
           ToText(*X509_get_issuer_name(&certificate)) + "\t" +
           ToText(*X509_get0_notBefore(&certificate)) + "\t" +
           ToText(*X509_get0_notAfter(&certificate)) + "\t" +
           simulator::pki::Fingerprint(certificate) + "\n";
}

bool FitsStoreAndKind(const StoreEntry& entry, const EntrySelector& selector) {
    return (selector.store.empty() || entry.store == selector.store) &&
           (selector.kind.empty() || selector.kind == KindName(entry));
}

}  // namespace

std::string Describe(const std::vector<StoreEntry>& entries) {
    std::string lines;
    for (const StoreEntry& entry : entries) {
        if (entry.certificateChain.empty()) {
            lines += Prefix(entry, 0) + "\t-\t-\t-\t-\t-\n";
            continue;
        }
        std::size_t position = 0;
        for (const auto& certificate : simulator::pki::ReadCertificates(entry.certificateChain)) {
            lines += Prefix(entry, ++position) + Describe(*certificate);
        }
    }
    return lines;
}

std::vector<StoreEntry> Filter(const std::vector<StoreEntry>& entries,
                               const EntrySelector& selector) {
    std::vector<StoreEntry> fitting;
    std::copy_if(
        entries.begin(), entries.end(), std::back_inserter(fitting),
        [&selector](const StoreEntry& entry) { return FitsStoreAndKind(entry, selector); });
    return fitting;
}

StoreEntry Select(const std::vector<StoreEntry>& entries, const EntrySelector& selector) {
    const StoreEntry* found = nullptr;
    for (const StoreEntry& entry : entries) {
        if (entry.id != selector.id || !FitsStoreAndKind(entry, selector)) {
            continue;
        }
        if (found != nullptr) {
            throw PkiError("more than one entry has the id '" + selector.id +
                           "': name the store or the kind, too");
        }
        found = &entry;
    }
    if (found == nullptr) {
        throw PkiError("the store has no such entry: '" + selector.id + "'");
    }
    return *found;
}

}  // namespace provision
