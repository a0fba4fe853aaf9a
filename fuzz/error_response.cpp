// The backend's answer to a request that it refused.

#include <string>

#include <google/protobuf/stubs/logging.h>

#include "GenericError_V2.pb.h"
#include "client/certificate_messages.h"
#include "fuzz/check.h"

namespace {

/// No complaints about inputs.
const auto gFormerHandler = google::protobuf::SetLogHandler(nullptr);

using fuzz::Check;
using vintrel::protobuf::ParseErrorResponse;

const std::string kBefore = "text of before";

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

void CheckParsesTo(const std::string& payload, const std::string& expected, const char* property) {
    std::string text = kBefore;
    Check(ParseErrorResponse(payload, text) && text == expected, property);
}

}  // namespace

void fuzz::TryInput(std::string_view input) {
    const std::string payload(input);
    std::string text = kBefore;
    if (!ParseErrorResponse(payload, text)) {
        Check(text == kBefore, "a failure leaves the text as it was");
        return;
    }
    CheckParsesTo(Serialize(text), text, "the text says all that the message did");
    CheckParsesTo(payload + payload, text, "of a field that comes twice the last one counts");
    CheckParsesTo(payload + "\x4A\x01x", text, "an unknown field changes nothing");
}
