// The backend's answers: to a request that it granted, and to one that it refused.

#include <string>
#include <string_view>
#include <tuple>

#include <google/protobuf/stubs/logging.h>

#include "GenericError_V2.pb.h"
#include "QUBA_CT_KoruCertificateResponse_v2.pb.h"
#include "client/certificate_messages.h"
#include "fuzz/check.h"

namespace vintrel::protobuf {

bool operator==(const CertificateResponse& left, const CertificateResponse& right) {
    const auto fields = [](const CertificateResponse& response) {
        return std::tie(response.certificate, response.signed_vehicle_transaction_type_list,
                        response.signed_vehicle_transaction_activation_type_list);
    };
    return fields(left) == fields(right);
}

}  // namespace vintrel::protobuf

namespace {

/// No complaints about inputs.
const auto gFormerHandler = google::protobuf::SetLogHandler(nullptr);

using fuzz::Check;
using vintrel::protobuf::CertificateResponse;

std::string Serialize(const CertificateResponse& response) {
    domain::backend::proto::QUBACTKoruCertificateResponseV2 message;
    message.set_certificate(response.certificate);
    message.set_signed_vehicle_transaction_type_list(response.signed_vehicle_transaction_type_list);
    message.set_signed_vehicle_transaction_activation_type_list(
        response.signed_vehicle_transaction_activation_type_list);
    return message.SerializeAsString();
}

/// Cuts the text that stands between two others off the front of `text`, together with them.
std::string Take(std::string& text, const std::string& before, const std::string& behind) {
    const auto end = text.find(behind, before.size());
    Check(text.rfind(before, 0) == 0 && end != std::string::npos, "the text has three lines");
    std::string between = text.substr(before.size(), end - before.size());
    text.erase(0, end + behind.size());
    return between;
}

/// A message that gives this text. A line that looks like the last one may stand in the
/// description or in the id; the text is the same.
std::string Serialize(std::string text) {
    domain::backend::proto::GenericErrorV2 message;
    message.set_error_code(std::stoi(Take(text, "ErrorCode: ", "\nErrorDescription: ")));
    message.set_error_description(Take(text, "", "\nTransactionId: "));
    Check(!text.empty() && text.back() == '\n', "a line feed ends the text");
    text.pop_back();
    message.set_transaction_id(text);
    return message.SerializeAsString();
}

/// What holds for either parser, whose result was `before` until then.
template <typename Result>
void CheckParser(bool (*parse)(const std::string&, Result&), const std::string& payload,
                 const Result& before) {
    Result result = before;
    if (!parse(payload, result)) {
        Check(result == before, "a failure leaves the result as it was");
        return;
    }
    const auto checkParsesTo = [&](const std::string& other, const char* property) {
        Result again = before;
        Check(parse(other, again) && again == result, property);
    };
    checkParsesTo(Serialize(result), "the result says all that the message did");
    checkParsesTo(payload + payload, "of a field that comes twice the last one counts");
    checkParsesTo(payload + "\x4A\x01x", "an unknown field changes nothing");
}

}  // namespace

void fuzz::TryInput(std::string_view input) {
    const std::string payload(input);
    CheckParser<CertificateResponse>(vintrel::protobuf::ParseResponse, payload,
                                     {"chain of before", "types of before", "activations"});
    CheckParser<std::string>(vintrel::protobuf::ParseErrorResponse, payload, "text of before");
}
