#pragma once

#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <variant>

namespace service_access {

/// How a request is answered.
struct InfoAnswer {
    unsigned status;
    std::string body;
};

/// Answers requests for the services of the vehicle: which are known, which are available, and what
/// their records are. Not to be shared between threads.
class InfoService {
public:
    InfoService();

    /// Sets whether the service is available; it is known from now on in either case. False if this
    /// changes nothing.
    bool SetAvailable(const std::string& name, bool available);
    const std::set<std::string>& Available() const { return mAvailable; }

    /// The immobilizer's record from now on: with this vehicle identification number, or without.
    void ReportVin(std::optional<std::string> vin);
    /// The immobilizer's answer from now on.
    void ReportAnswer(InfoAnswer answer);
    /// The immobilizer answers no request from now on.
    void ReportNothing();

    /// The answer to a request for `target`, the path and the query part of a URL. Nothing if the
    /// request is to stay unanswered.
    std::optional<InfoAnswer> Answer(std::string_view target) const;

private:
    struct Vin {
        std::optional<std::string> text;
    };
    struct Silence {};

    std::optional<InfoAnswer> AnswerImmobilizer(const std::set<unsigned>& fields) const;

    std::set<std::string> mKnown;
    std::set<std::string> mAvailable;
    std::variant<Vin, InfoAnswer, Silence> mImmobilizer;
};

}  // namespace service_access
