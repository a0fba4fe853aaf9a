#include "provision/judgement_report.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include <nlohmann/json.hpp>

#include <pki_support/certificates.h>

#include "provision/store_report.h"

namespace provision {

using nlohmann::ordered_json;
using vintrel::StatusCode;

namespace {

const char* StandingText(Standing standing) {
    switch (standing) {
        case Standing::kInOrder:
            return "in order";
        case Standing::kDue:
            return "due";
        case Standing::kMissing:
            return "missing";
        case Standing::kWrong:
            break;
    }
    return "wrong";
}

const char* StandingName(Standing standing) {
    return standing == Standing::kInOrder ? "inOrder" : StandingText(standing);
}

const char* NextPassName(NextPass nextPass) {
    switch (nextPass) {
        case NextPass::kKeepsCertificate:
            return "keeps";
        case NextPass::kEnrols:
            return "enrols";
        case NextPass::kReplaces:
            return "deletesAndEnrols";
        case NextPass::kEndsEarly:
            break;
    }
    return "endsEarly";
}

ordered_json StatusCodeName(const std::optional<StatusCode>& status) {
    if (!status.has_value()) {
        return nullptr;
    }
    switch (*status) {
        case StatusCode::Ok:
            return "Ok";
        case StatusCode::NoCertificate:
            return "NoCertificate";
        case StatusCode::CommonNameMismatch:
            return "CommonNameMismatch";
        case StatusCode::PathInvalid:
            return "PathInvalid";
        case StatusCode::KeyMismatch:
            return "KeyMismatch";
        case StatusCode::ExpiresWithinYear:
            break;
    }
    return "ExpiresWithinYear";
}

std::string Join(const std::vector<std::string>& parts, const char* separator) {
    std::string text;
    for (const std::string& part : parts) {
        text += (text.empty() ? "" : separator) + part;
    }
    return text;
}

// Names come from certificates: none may start a line or control a terminal.
std::string ToLine(const std::string& text) {
    constexpr unsigned char kDelete = 0x7f;
    std::string line;
    for (const char letter : text) {
        const auto byte = static_cast<unsigned char>(letter);
        if (byte >= ' ' && byte != kDelete) {
            line += letter;
            continue;
        }
        std::array<char, 5> code{};
        std::snprintf(code.data(), code.size(), "\\x%02X", byte);
        line += code.data();
    }
    return line + "\n";
}

std::string PlaceText(const EntryJudgement& entry) {
    return entry.store + " " + KindName(entry.kind) + " " + entry.id;
}

std::string Describe(const CertificateFacts& facts) {
    return facts.subject + ", valid " + facts.notBefore + " to " + facts.notAfter + ", " +
           std::to_string(facts.daysLeft) + " days left";
}

std::string DescribeFindings(const EntryJudgement& entry) {
    std::vector<std::string> parts;
    if (entry.certificate.has_value()) {
        parts.push_back(Describe(*entry.certificate));
    }
    if (entry.keyOpens == true) {
        parts.emplace_back("key opens");
    }
    if (entry.keyFits == true) {
        parts.emplace_back("key fits");
    }
    if (entry.pathGood == true) {
        parts.emplace_back("path good");
    }
    parts.insert(parts.end(), entry.faults.begin(), entry.faults.end());
    return Join(parts, ", ");
}

ordered_json ToMember(const std::optional<bool>& answer) {
    return answer.has_value() ? ordered_json(*answer) : ordered_json(nullptr);
}

ordered_json ToMember(const std::string& text) {
    return text.empty() ? ordered_json(nullptr) : ordered_json(text);
}

ordered_json ToMember(const std::optional<CertificateFacts>& facts) {
    if (!facts.has_value()) {
        return nullptr;
    }
    ordered_json member = ToMember(static_cast<const CertificateText&>(*facts));
    member["daysLeft"] = facts->daysLeft;
    return member;
}

ordered_json ToMember(const EntryJudgement& entry) {
    return {{"store", entry.store},
            {"kind", KindName(entry.kind)},
            {"id", entry.id},
            {"standing", StandingName(entry.standing)},
            {"keyOpens", ToMember(entry.keyOpens)},
            {"keyFits", ToMember(entry.keyFits)},
            {"pathGood", ToMember(entry.pathGood)},
            {"certificate", ToMember(entry.certificate)},
            {"faults", entry.faults}};
}

ordered_json ToMember(const std::vector<EntryJudgement>& entries) {
    ordered_json members = ordered_json::array();
    for (const EntryJudgement& entry : entries) {
        members.push_back(ToMember(entry));
    }
    return members;
}

std::string DescribeNextPass(const UnitStatus& status) {
    const bool isObstructed = !status.obstacle.empty();
    switch (status.nextPass) {
        case NextPass::kEndsEarly:
            return "can't enrol: " + status.reason;
        case NextPass::kKeepsCertificate:
            return "keeps the certificate" +
                   (isObstructed ? ", but could not renew it: " + status.obstacle : std::string());
        case NextPass::kReplaces:
            return isObstructed ? "deletes the certificate and can't enrol: " + status.obstacle +
                                      " (" + status.reason + ")"
                                : "deletes the certificate and enrols: " + status.reason;
        case NextPass::kEnrols:
            break;
    }
    return isObstructed ? "can't enrol: " + status.obstacle + " (" + status.reason + ")"
                        : "enrols: " + status.reason;
}

}  // namespace

Standing StandingOf(const std::vector<EntryJudgement>& entries) {
    Standing gravest = Standing::kInOrder;
    for (const EntryJudgement& entry : entries) {
        gravest = std::max(gravest, entry.standing);
    }
    return gravest;
}

std::string Describe(const std::vector<EntryJudgement>& entries) {
    std::string lines;
    for (const EntryJudgement& entry : entries) {
        lines += ToLine(std::string(StandingText(entry.standing)) + ": " + PlaceText(entry) + ": " +
                        DescribeFindings(entry));
    }
    return lines;
}

std::string ToJson(const std::vector<EntryJudgement>& entries, TimePoint at) {
    return Print(ordered_json{{"at", pki_support::ToText(at)},
                              {"standing", StandingName(StandingOf(entries))},
                              {"entries", ToMember(entries)}});
}

std::string Describe(const UnitStatus& status) {
    std::string line = std::string(StandingText(status.standing)) + ": ";
    const bool hasCertificate =
        status.client.has_value() && (status.client->certificate || !status.client->faults.empty());
    line += hasCertificate ? DescribeFindings(*status.client) : "no client certificate";
    line += "; next pass " + DescribeNextPass(status);
    if (status.isBeingReplaced) {
        line +=
            "; a certificate is waiting to be accepted: the service is at it, or was interrupted";
    }
    for (const EntryJudgement& entry : status.broken) {
        line += "; " + PlaceText(entry) + " " + entry.faults.front();
    }
    return ToLine(line);
}

std::string ToJson(const UnitStatus& status, TimePoint at) {
    return Print(ordered_json{
        {"at", pki_support::ToText(at)},
        {"standing", StandingName(status.standing)},
        {"vin", ToMember(status.vin)},
        {"certificate", status.client ? ToMember(status.client->certificate) : nullptr},
        {"keyOpens", status.client ? ToMember(status.client->keyOpens) : nullptr},
        {"keyFits", status.client ? ToMember(status.client->keyFits) : nullptr},
        {"pathGood", status.client ? ToMember(status.client->pathGood) : nullptr},
        {"judgement", StatusCodeName(status.judgement)},
        {"nextPass", NextPassName(status.nextPass)},
        {"reason", status.reason},
        {"obstacle", ToMember(status.obstacle)},
        {"isBeingReplaced", status.isBeingReplaced},
        {"broken", ToMember(status.broken)}});
}

}  // namespace provision
