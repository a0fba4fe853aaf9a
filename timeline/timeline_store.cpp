#include "timeline/timeline_store.h"

#include <algorithm>
#include <iterator>

#include <nlohmann/json.hpp>

namespace timeline {

void TimelineStore::Add(const Event& event) {
    if (mSections.empty() || !mSections.back().open) {
        Section section;
        section.begin = event.moment;
        section.states = mStates;
        mSections.push_back(std::move(section));
    }
    Section& section = mSections.back();
    section.events.push_back(event);
    section.end = event.moment;
    ++mEventCount;
    if (event.kind == EventKind::kState) {
        mStates[event.lane] = event.text;
    }
    if (event.kind == EventKind::kPassEnd) {
        ++section.sums.passes;
        if (IsBad(event.pass->outcome)) {
            ++section.sums.badPasses;
            ++mBadSections;
            section.bad = true;
        }
        ListPass(event.pass);
    }
    section.open =
        event.kind != EventKind::kPassEnd && section.events.size() < mLimits.eventsOfSection;
    while (mEventCount > mLimits.events && SumUpOldest()) {
    }
}

bool TimelineStore::SumUpOldest() {
    const bool sparesBad = mBadSections <= mLimits.failedPasses;
    const auto last = std::prev(mSections.end());
    auto oldest = std::find_if(mSections.begin(), last, [&](const Section& section) {
        return !section.summed && !(sparesBad && section.bad);
    });
    if (oldest == last) {
        oldest = std::find_if(mSections.begin(), last,
                              [](const Section& section) { return !section.summed; });
    }
    if (oldest == last) {
        return false;
    }
    SumUp(oldest);
    return true;
}

void TimelineStore::SumUp(std::list<Section>::iterator section) {
    mEventCount -= section->events.size();
    mBadSections -= section->bad ? 1 : 0;
    section->sums.events += section->events.size();
    section->summed = true;
    section->bad = false;
    section->events.clear();
    section->states.clear();
    const auto join = [this](std::list<Section>::iterator into, std::list<Section>::iterator from) {
        into->end = from->end;
        into->sums.passes += from->sums.passes;
        into->sums.badPasses += from->sums.badPasses;
        into->sums.events += from->sums.events;
        mSections.erase(from);
    };
    const auto next = std::next(section);
    if (next != mSections.end() && next->summed) {
        join(section, next);
    }
    if (section != mSections.begin() && std::prev(section)->summed) {
        join(std::prev(section), section);
    }
}

void TimelineStore::ListPass(const std::shared_ptr<const Pass>& pass) {
    mPasses.push_back(pass);
    if (mPasses.size() <= mLimits.listedPasses) {
        return;
    }
    // A good one goes first, as long as the bad ones leave the newer ones half of the list.
    const auto half = mPasses.begin() + static_cast<std::ptrdiff_t>(mPasses.size() / 2);
    auto leaving = std::find_if(mPasses.begin(), half,
                                [](const auto& listed) { return !IsBad(listed->outcome); });
    if (leaving == half) {
        leaving = mPasses.begin();
    }
    ++mUnlisted.passes;
    mUnlisted.badPasses += IsBad((*leaving)->outcome) ? 1 : 0;
    mPasses.erase(leaving);
}

nlohmann::json TimelineStore::ToJson() const {
    nlohmann::json sections = nlohmann::json::array();
    for (const Section& section : mSections) {
        nlohmann::json json{{"begin", section.begin}, {"end", section.end}};
        if (section.summed) {
            json["sums"] = {{"passes", section.sums.passes},
                            {"badPasses", section.sums.badPasses},
                            {"events", section.sums.events}};
        } else {
            json["states"] = section.states;
            json["events"] = section.events;
        }
        sections.push_back(std::move(json));
    }
    nlohmann::json passes = nlohmann::json::array();
    for (const auto& pass : mPasses) {
        passes.push_back(*pass);
    }
    return {{"sections", std::move(sections)},
            {"passes", std::move(passes)},
            {"passesLeftOut", {{"passes", mUnlisted.passes}, {"badPasses", mUnlisted.badPasses}}}};
}

}  // namespace timeline
