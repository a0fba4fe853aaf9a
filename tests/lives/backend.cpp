#include "lives/backend.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <map>
#include <system_error>

#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "GenericError_V2.pb.h"
#include "QUBA_CT_KoruCertificateResponse_v2.pb.h"

namespace lives {

namespace {

const std::string kContinue = "HTTP/1.1 100 Continue\r\n\r\n";
const std::string kCertificateType =
    "Content-Type: application/QUBA_CT_KoruCertificateResponse_v2+proto\r\n";
const std::string kErrorType = "Content-Type: application/GenericError_v2+proto\r\n";

/// Room for a request of `ExchangeModel::kFits` bytes behind its header, and not for a long one.
constexpr int kSendBuffer = 16384;

const std::string kNoNumber = "HTTP/1.1 abc\r\n\r\n";
const std::string kNoMessage = "\xff\xff\xff";

std::string Answer(const std::string& status, const std::string& fields, const std::string& body) {
    return "HTTP/1.1 " + status + "\r\n" + fields +
           "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

std::string ErrorBody(int code) {
    domain::backend::proto::GenericErrorV2 error;
    error.set_error_code(code);
    error.set_error_description("not today");
    return error.SerializeAsString();
}

std::string CertificateBody(int number, std::size_t size) {
    domain::backend::proto::QUBACTKoruCertificateResponseV2 response;
    response.set_certificate("chain " + std::to_string(number) + std::string(size, '.'));
    return response.SerializeAsString();
}

}  // namespace

int Backend::Connect(bool sound) {
    Close();
    std::array<int, 2> ends{-1, -1};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        throw std::system_error(errno, std::generic_category(), "socketpair");
    }
    setsockopt(ends[0], SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof(kSendBuffer));
    mSocket = ends[1];
    mWire = std::make_shared<Wire>();
    mReceived.clear();
    mPlan.clear();
    Plan(sound);
    mRude = std::any_of(mPlan.begin(), mPlan.end(),
                        [](const Move& move) { return move.action == Action::kCloseUnread; });
    return ends[0];
}

void Backend::Plan(bool sound) {
    if (!sound && mRandom.OneIn(20)) {
        Close();
    } else if (!sound && mRandom.OneIn(3)) {
        PlanConfirmation();
    } else {
        Send(kContinue, mRandom.OneIn(4));
        if (sound || !mRandom.OneIn(6)) {
            mPlan.push_back({Action::kAwaitBody, {}});
        }
        PlanAnswer(sound);
    }
}

void Backend::PlanConfirmation() {
    // Rare: a life ends with the exception that this one leads to.
    if (mRandom.OneIn(12)) {
        Send(kNoNumber, false);
        return;
    }
    const std::uint32_t kind = mRandom.Below(6);
    const bool inPieces = (kind == 0 || kind == 3) && mRandom.OneIn(2);
    static const std::array<std::string, 6> texts = {
        "HTTP/1.1 417 Expectation Failed\r\n\r\n",
        "no protocol\r\n\r\n",
        // What stands behind the confirmation in the same read is lost.
        kContinue + Answer("200 OK", kCertificateType, "lost"),
        kContinue,
        "HTTP/1.1 300 Multiple\r\n\r\n",
        {}};
    Send(kind == 3 ? Part(kContinue) : texts.at(kind), inPieces);
    if (kind == 2) {
        mPlan.push_back({Action::kAwaitBody, {}});
    }
    if (mRandom.OneIn(2)) {
        mPlan.push_back(
            {mRandom.Pick({Action::kClose, Action::kHalfClose, Action::kCloseUnread}), {}});
    }
}

std::string Backend::Part(const std::string& text) {
    return text.substr(0, mRandom.Below(static_cast<std::uint32_t>(text.size())));
}

void Backend::PlanAnswer(bool sound) {
    const std::string certificate = CertificateBody(
        ++mCertificates, mRandom.OneIn(20) ? mRandom.Below(20000) : mRandom.Below(40));
    std::string text = Answer("200 OK", kCertificateType, certificate);
    if (!sound) {
        text = Unsound(text);
    }
    Send(text, mRandom.OneIn(3));
    if (sound || !mRandom.OneIn(4)) {
        mPlan.push_back({mRandom.OneIn(2) ? Action::kClose : Action::kHalfClose, {}});
    }
}

std::string Backend::Unsound(const std::string& answer) {
    const std::uint32_t kind = mRandom.Below(mRandom.OneIn(3) ? 10 : 9);
    if (kind == 3) {
        const int code = static_cast<int>(mRandom.Below(1000)) - 500;
        return Answer("500 Internal", kErrorType, ErrorBody(code));
    }
    if (kind == 4) {
        return Answer("403 Forbidden", kErrorType, mRandom.OneIn(2) ? kNoMessage : "");
    }
    if (kind == 6) {
        return Part(answer);
    }
    if (kind == 8) {
        mPlan.push_back({Action::kCloseUnread, {}});
        return answer;
    }
    static const std::map<std::uint32_t, std::string> texts = {
        {0, Answer("200 OK", kCertificateType, {})},
        {1, Answer("200 OK", "Content-Type: text/html\r\n", "hello")},
        {2, Answer("200 OK", kCertificateType, kNoMessage)},
        {5, Answer("404 Not Found", {}, {})},
        {7, {}},
        {9, kNoNumber},
    };
    return texts.at(kind);
}

void Backend::Send(const std::string& text, bool inPieces) {
    std::size_t sent = 0;
    while (sent < text.size()) {
        const auto rest = static_cast<std::uint32_t>(text.size() - sent);
        const std::size_t size = inPieces ? 1 + mRandom.Below(rest) : rest;
        mPlan.push_back({Action::kSend, text.substr(sent, size)});
        sent += size;
    }
}

bool Backend::Step() {
    if (mSocket < 0 || mPlan.empty()) {
        return false;
    }
    const Move move = mPlan.front();
    Read();
    if (move.action == Action::kAwaitBody && !mRude) {
        const std::size_t end = mReceived.find("\r\n\r\n");
        if (end == std::string::npos || mReceived.size() == end + 4) {
            return false;
        }
    }
    mPlan.pop_front();
    if (move.action == Action::kSend) {
        SendPiece(move.text);
    } else if (move.action == Action::kHalfClose) {
        mOracle.Tell("the backend has no more to say");
        shutdown(mSocket, SHUT_WR);
        mWire->backendHalfClosed = true;
    } else if (move.action != Action::kAwaitBody) {
        Close();
    }
    return true;
}

void Backend::SendPiece(const std::string& text) {
    mOracle.Tell("the backend writes " + std::to_string(text.size()) + " bytes: " + text);
    if (send(mSocket, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL) > 0) {
        mWire->toMachine += text;
    }
}

void Backend::Read() {
    if (mSocket < 0 || mRude) {
        return;
    }
    std::array<char, 4096> buffer{};
    ssize_t size = 0;
    while ((size = recv(mSocket, buffer.data(), buffer.size(), MSG_DONTWAIT)) > 0) {
        mReceived.append(buffer.data(), static_cast<std::size_t>(size));
    }
    const std::string& expected = mWire->toBackend;
    const bool same = mWire->cut ? mReceived.size() < expected.size() &&
                                       expected.compare(0, mReceived.size(), mReceived) == 0
                                 : mReceived == expected;
    if (!same) {
        mOracle.Violate("the backend received: " + mReceived + "\n  instead of: " + expected);
    }
}

void Backend::Close() {
    if (mSocket < 0) {
        return;
    }
    mOracle.Tell("the backend closes");
    int unread = 0;
    mWire->reset = ioctl(mSocket, FIONREAD, &unread) == 0 && unread > 0;
    mWire->backendGone = true;
    close(mSocket);
    mSocket = -1;
}

}  // namespace lives
