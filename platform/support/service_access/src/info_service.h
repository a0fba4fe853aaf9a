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

/// The services of the vehicle as requests see them: which are known, which are there, and what
/// their records are. One thread.
class InfoService {
public:
    InfoService();

    /// Makes the service known for good; false if it is (or is not) available already.
    bool SetAvailable(const std::string& name, bool available);
    const std::set<std::string>& Available() const { return mAvailable; }

    /// The immobilizer's record holds this, or no vehicle identification number.
    void ReportVin(std::optional<std::string> vin);
    /// The immobilizer answers as given.
    void ReportAnswer(InfoAnswer answer);
    /// The immobilizer does not answer.
    void ReportNothing();

    /// The answer to a request for `target`, the path and the query part of a URL. Nothing if the
    /// request stays without one.
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
