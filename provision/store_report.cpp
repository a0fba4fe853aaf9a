#include "provision/store_report.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include <nlohmann/json.hpp>

#include <pki_support/certificates.h>
#include <pki_support/pki_error.h>

namespace provision {

using nlohmann::ordered_json;
using orv::sec::crypto::host::EntryKind;
using orv::sec::crypto::host::StoreEntry;
using pki_support::PkiError;

namespace {

/// What `show` prints of an entry.
struct EntryText {
    std::vector<CertificateText> certificates;
    std::string fault;
};

/// A certificate that the store can parse may still have a field that cannot be converted.
EntryText Read(const StoreEntry& entry) {
    EntryText text;
    text.fault = entry.fault;
    if (!text.fault.empty() || entry.certificateChain.empty()) {
        return text;
    }
    try {
        for (const auto& certificate : pki_support::ReadCertificates(entry.certificateChain)) {
            text.certificates.push_back(ReadText(*certificate));
        }
    } catch (const PkiError& error) {
        text = {{}, error.what()};
    }
    return text;
}

std::string Line(const StoreEntry& entry, std::size_t position, const CertificateText& text) {
    return entry.store + "\t" + KindName(entry.kind) + "\t" + entry.id + "\t" +
           std::to_string(position) + "\t" + text.subject + "\t" + text.issuer + "\t" +
           text.notBefore + "\t" + text.notAfter + "\t" + text.fingerprint + "\n";
}

bool FitsStoreAndKind(const StoreEntry& entry, const EntrySelector& selector) {
    return (selector.store.empty() || entry.store == selector.store) &&
           (selector.kind.empty() || selector.kind == KindName(entry.kind));
}

}  // namespace

CertificateText ReadText(const X509& certificate) {
    using pki_support::ToText;
    return {ToText(*X509_get_subject_name(&certificate)),
            ToText(*X509_get_issuer_name(&certificate)), ToText(*X509_get0_notBefore(&certificate)),
            ToText(*X509_get0_notAfter(&certificate)), pki_support::Fingerprint(certificate)};
}

ordered_json ToMember(const CertificateText& text) {
    return {{"subject", text.subject},
            {"issuer", text.issuer},
            {"notBefore", text.notBefore},
            {"notAfter", text.notAfter},
            {"fingerprint", text.fingerprint}};
}

const char* KindName(EntryKind kind) {
    return kind == EntryKind::kKeyPair ? "key" : "certificate";
}

std::string Describe(const std::vector<StoreEntry>& entries) {
    std::string lines;
    for (const StoreEntry& entry : entries) {
        const EntryText text = Read(entry);
        if (text.certificates.empty()) {
            const std::string subject = text.fault.empty() ? "-" : "broken: " + text.fault;
            lines += Line(entry, 0, {subject, "-", "-", "-", "-"});
        }
        for (std::size_t index = 0; index < text.certificates.size(); ++index) {
            lines += Line(entry, index + 1, text.certificates[index]);
        }
    }
    return lines;
}

std::string ToJson(const std::vector<StoreEntry>& entries) {
    ordered_json members = ordered_json::array();
    for (const StoreEntry& entry : entries) {
        const EntryText text = Read(entry);
        ordered_json certificates = ordered_json::array();
        for (const CertificateText& certificate : text.certificates) {
            certificates.push_back(ToMember(certificate));
        }
        members.push_back(
            {{"store", entry.store},
             {"kind", KindName(entry.kind)},
             {"id", entry.id},
             {"certificates", std::move(certificates)},
             {"fault", text.fault.empty() ? ordered_json(nullptr) : ordered_json(text.fault)}});
    }
    return Print(ordered_json{{"entries", std::move(members)}});
}

std::string Print(const ordered_json& json) {
    constexpr int kIndent = 2;
    return json.dump(kIndent, ' ', false, ordered_json::error_handler_t::replace) + "\n";
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
