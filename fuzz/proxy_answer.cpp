// What a proxy answers. The first byte of an input tells the question (see ParserOf).

#include <string_view>
#include <vector>

#include "fuzz/check.h"
#include "proxy_protocol.h"

namespace {

using fuzz::Check;
using zem_connector::ProxyAnswer;
using State = ProxyAnswer::State;
using Parser = ProxyAnswer (*)(std::string_view);

Parser ParserOf(char question) {
    switch (question) {
        case 'h':
            return zem_connector::ParseHttpConnectAnswer;
        case 'm':
            return [](std::string_view bytes) {
                return zem_connector::ParseSocks5Method(bytes, false);
            };
        case 'M':
            return [](std::string_view bytes) {
                return zem_connector::ParseSocks5Method(bytes, true);
            };
        case 'c':
            return zem_connector::ParseSocks5CredentialsAnswer;
        case 'r':
            return zem_connector::ParseSocks5ConnectAnswer;
        default:
            return nullptr;
    }
}

/// Parses from a block of just this size, so that no byte behind it can be read unnoticed.
ProxyAnswer Parse(Parser parser, std::string_view bytes) {
    const std::vector<char> block(bytes.begin(), bytes.end());
    return parser({block.data(), block.size()});
}

bool IsSame(const ProxyAnswer& left, const ProxyAnswer& right) {
    return left.state == right.state && left.size == right.size && left.code == right.code;
}

void CheckAnswer(const ProxyAnswer& answer, std::string_view bytes) {
    Check(answer.size <= bytes.size(), "an answer is no longer than what has arrived");
    Check(answer.size <= zem_connector::kMaxProxyAnswerSize, "no answer is longer than the limit");
    switch (answer.state) {
        case State::kIncomplete:
            Check(bytes.size() < zem_connector::kMaxProxyAnswerSize, "the wait for an end ends");
            Check(answer.size == 0, "half an answer has no size");
            break;
        case State::kAccepted:
            Check(answer.size != 0, "nothing at all accepts nothing");
            break;
        case State::kRefused:
            Check(answer.code != 0, "a refusal has a reason");
            break;
        case State::kMalformed:
            break;
    }
}

}  // namespace

void fuzz::TryInput(std::string_view input) {
    const Parser parser = input.empty() ? nullptr : ParserOf(input[0]);
    if (parser == nullptr) {
        return;
    }
    const std::string_view bytes = input.substr(1);
    const ProxyAnswer whole = Parse(parser, bytes);
    CheckAnswer(whole, bytes);
    for (const auto cut : fuzz::Cuts(bytes.size())) {
        const ProxyAnswer part = Parse(parser, bytes.substr(0, cut));
        CheckAnswer(part, bytes.substr(0, cut));
        Check(part.state == State::kIncomplete || IsSame(part, whole),
              "what follows an answer does not change it");
        Check(whole.state != State::kAccepted ||
                  (part.state == State::kAccepted) == (cut >= whole.size),
              "an answer is accepted at its last byte");
    }
}
