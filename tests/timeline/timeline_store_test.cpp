#include "timeline/timeline_store.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace timeline {

namespace {

/// A store that was given passes, each a second long; every 50th fails.
nlohmann::json StoreOf(int passes, TimelineStore::Limits limits) {
    TimelineStore store(limits);
    Event event;
    for (int number = 1; number <= passes; ++number) {
        event.moment.axis = std::int64_t{number} * 1000;
        event.kind = EventKind::kState;
        event.lane = "VintrelClientFsm";
        for (const char* state : {"FsmStateWaitVin", "FsmStateWaitTrigger"}) {
            event.text = state;
            store.Add(event);
        }
        Pass pass;
        pass.number = static_cast<std::uint64_t>(number);
        pass.outcome = number % 50 == 0 ? PassOutcome::kFailed : PassOutcome::kStored;
        event.kind = EventKind::kPassEnd;
        event.pass = std::make_shared<const Pass>(pass);
        store.Add(event);
        event.pass.reset();
    }
    return store.ToJson();
}

TEST(TimelineStoreTest, ALongLogIsSummedUpButForTheNewestAndTheFailedPasses) {
    const nlohmann::json json = StoreOf(1010, {60, 10, 4, 30});

    std::size_t events = 0;
    std::uint64_t passes = 0;
    std::uint64_t badPasses = 0;
    std::vector<std::uint64_t> drawn;
    bool summedBefore = false;
    for (const nlohmann::json& section : json["sections"]) {
        const bool summed = section.contains("sums");
        EXPECT_FALSE(summed && summedBefore) << "neighbouring sums are one";
        summedBefore = summed;
        if (summed) {
            passes += section["sums"]["passes"].get<std::uint64_t>();
            badPasses += section["sums"]["badPasses"].get<std::uint64_t>();
            continue;
        }
        EXPECT_EQ(section["states"], (nlohmann::json{{"VintrelClientFsm", "FsmStateWaitTrigger"}}));
        events += section["events"].size();
        drawn.push_back(section["events"].back()["pass"]["number"].get<std::uint64_t>());
    }
    EXPECT_LE(events, 60U);
    EXPECT_EQ(passes + drawn.size(), 1010U);
    EXPECT_EQ(badPasses, 16U);
    ASSERT_GE(drawn.size(), 5U);
    EXPECT_EQ(std::vector<std::uint64_t>(drawn.begin(), drawn.begin() + 3),
              (std::vector<std::uint64_t>{850, 900, 950}));
    EXPECT_EQ(drawn.back(), 1010U);

    EXPECT_EQ(json["passes"].size(), 30U);
    EXPECT_EQ(json["passesLeftOut"]["passes"], 980);
}

TEST(TimelineStoreTest, AnEndlessQuietIsBoundedToo) {
    TimelineStore store({60, 10, 4, 30});
    Event event;
    for (int i = 0; i < 1000; ++i) {
        store.Add(event);
    }
    const nlohmann::json sections = store.ToJson()["sections"];
    EXPECT_LE(sections.size(), 7U);
    EXPECT_GE(sections.front()["sums"]["events"], 940);
}

}  // namespace

}  // namespace timeline
