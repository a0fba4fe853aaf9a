#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <list>
#include <map>
#include <memory>
#include <string>

#include <nlohmann/json_fwd.hpp>

#include "timeline/timeline_event.h"

namespace timeline {

/// Keeps the events of a log that are drawn, within bounds that do not depend on the log: the
/// newest passes and the newest failed ones event by event, the stretches between them as sums.
/// Belongs to one thread.
class TimelineStore {
public:
    struct Limits {
        /// Events that are kept one by one.
        std::size_t events{20000};
        /// Of a pass, or of the quiet before it; what follows is a new section.
        std::size_t eventsOfSection{1000};
        /// Failed passes that outlive newer good ones.
        std::size_t failedPasses{40};
        /// Passes in the list.
        std::size_t listedPasses{500};
    };

    TimelineStore() : TimelineStore(Limits{}) {}
    explicit TimelineStore(Limits limits) : mLimits(limits) {}

    /// The next event, in the order of the log.
    void Add(const Event& event);

    /// The report's input: {"sections": [...], "passes": [...], "passesLeftOut": {...}}. A
    /// section has either its events and the states that it begins with, or the sums of what it
    /// was.
    nlohmann::json ToJson() const;

private:
    struct Sums {
        std::uint64_t passes{0};
        std::uint64_t badPasses{0};
        std::uint64_t events{0};
    };
    /// Begins behind the end of a pass and ends with the end of the next one.
    struct Section {
        Moment begin;
        Moment end;
        /// What each lane shows at the beginning; of a sum: nothing.
        std::map<std::string, std::string> states;
        std::deque<Event> events;
        bool open{true};
        bool bad{false};
        bool summed{false};
        Sums sums;
    };

    /// False if no section is left to sum up but the one that is being filled.
    bool SumUpOldest();
    void SumUp(std::list<Section>::iterator section);
    void ListPass(const std::shared_ptr<const Pass>& pass);

    Limits mLimits;
    std::list<Section> mSections;
    /// What each lane shows now.
    std::map<std::string, std::string> mStates;
    std::size_t mEventCount{0};
    std::size_t mBadSections{0};
    std::deque<std::shared_ptr<const Pass>> mPasses;
    Sums mUnlisted;
};

}  // namespace timeline
