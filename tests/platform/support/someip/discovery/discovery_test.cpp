#include <gmock/gmock.h>

#include <someip/discovery/provided_service.h>
#include <someip/discovery/required_service.h>
#include <someip/discovery/sd_sessions.h>

namespace {

using namespace std::chrono_literals;
using someip::Endpoint;
using someip::ProvidedService;
using someip::RequiredService;
using someip::SdEntry;
using someip::SdEntryType;
using someip::SdStamp;
using someip::TimePoint;
using testing::ElementsAre;
using testing::IsEmpty;

using Lines = std::vector<std::string>;

constexpr Endpoint kProviderSd{0x7F000002, 30490};
constexpr Endpoint kProvider{0x7F000002, 4000};
constexpr Endpoint kClientSd{0x7F000003, 30490};
constexpr Endpoint kClient{0x7F000003, 5000};
constexpr Endpoint kStranger{0x7F000009, 30490};

someip::ServiceDeployment Service() {
    someip::ServiceDeployment service;
    service.serviceId = 0x1234;
    service.interfaceVersion = 2;
    service.events = {{"a", {0x8001, 1}}, {"b", {0x8002, 2}}};
    return service;
}

SdEntry Entry(SdEntryType type, std::uint32_t ttl, std::vector<Endpoint> endpoints = {}) {
    SdEntry entry;
    entry.type = type;
    entry.serviceId = 0x1234;
    entry.instanceId = 1;
    entry.majorVersion = 2;
    entry.ttl = ttl;
    entry.endpoints = std::move(endpoints);
    if (type == SdEntryType::kSubscribe || type == SdEntryType::kSubscribeAck) {
        entry.eventgroupId = 1;
    }
    return entry;
}

SdEntry Offer(std::uint32_t ttl = 3) {
    return Entry(SdEntryType::kOfferService, ttl, {kProvider});
}

SdEntry Subscribe(std::uint32_t ttl = 3) {
    return Entry(SdEntryType::kSubscribe, ttl, {kClient});
}

std::string Text(const SdEntry& entry) {
    const std::string group = " " + std::to_string(entry.eventgroupId);
    switch (entry.type) {
        case SdEntryType::kFindService:
            return "find";
        case SdEntryType::kOfferService:
            return entry.ttl == 0 ? "stop-offer" : "offer";
        case SdEntryType::kSubscribe:
            return (entry.ttl == 0 ? "stop-subscribe" : "subscribe") + group;
        case SdEntryType::kSubscribeAck:
            return (entry.ttl == 0 ? "nack" : "ack") + group;
    }
    return "";
}

/// Writes down what a state machine does, with the milliseconds since the beginning.
template <typename Environment>
class Recorder : public Environment {
public:
    void Multicast(const std::vector<SdEntry>& entries) override { Note("all", entries); }
    void Send(const Endpoint& peer, const std::vector<SdEntry>& entries) override {
        Note(ToText(peer), entries);
    }
    std::chrono::milliseconds RandomBetween(std::chrono::milliseconds min,
                                            std::chrono::milliseconds max) override {
        return (min + max) / 2;
    }
    void EntryRejected(const std::string& reason) override { Note("complaint: " + reason); }

    void Note(const std::string& what) {
        const auto time = std::chrono::duration_cast<std::chrono::milliseconds>(now - TimePoint());
        lines.push_back(std::to_string(time.count()) + " " + what);
    }

    Lines Take() { return std::exchange(lines, {}); }

    TimePoint now;
    Lines lines;

private:
    void Note(const std::string& to, const std::vector<SdEntry>& entries) {
        std::string text = to + ":";
        for (const SdEntry& entry : entries) {
            text += " " + Text(entry);
        }
        Note(text);
    }
};

class ClientEnvironment : public Recorder<RequiredService::Environment> {
public:
    std::optional<Endpoint> EventEndpoint(const Endpoint& /*provider*/) override { return kClient; }
    void AvailabilityChanged(bool available) override { Note(available ? "up" : "down"); }
    void OfferLapsed() override { Note("lapsed"); }
    void SubscriptionRefused(std::uint16_t /*eventgroup*/) override { Note("refused"); }
};

class ServerEnvironment : public Recorder<ProvidedService::Environment> {
public:
    void Subscribed(const Endpoint& receiver, std::uint16_t eventgroup) override {
        Note("values " + std::to_string(eventgroup) + " to " + ToText(receiver));
    }
};

/// Lets a state machine live in virtual time.
template <typename Environment, typename Machine>
class DiscoveryTest : public testing::Test {
protected:
    /// Does what is due within the time, and gives what was done.
    Lines Advance(std::chrono::milliseconds time) {
        const TimePoint end = mWorld.now + time;
        while (mMachine.NextDeadline() && *mMachine.NextDeadline() <= end) {
            mWorld.now = *mMachine.NextDeadline();
            mMachine.Tick(mWorld.now);
        }
        mWorld.now = end;
        return mWorld.Take();
    }

    Lines Hear(std::vector<SdEntry> entries, const Endpoint& sender, bool multicast = false,
               bool rebooted = false) {
        someip::ReceivedSdMessage message;
        message.content.entries = std::move(entries);
        message.sender = sender;
        message.multicast = multicast;
        message.rebooted = rebooted;
        mMachine.Handle(message, mWorld.now);
        return mWorld.Take();
    }

    static someip::SdTiming Timing() { return {}; }

    Environment mWorld;
    Machine mMachine = Make(mWorld);

private:
    static RequiredService Make(ClientEnvironment& world) { return {world, Service(), Timing()}; }
    static ProvidedService Make(ServerEnvironment& world) {
        return {world, Service(), Timing(), kProvider};
    }
};

class RequiredServiceTest : public DiscoveryTest<ClientEnvironment, RequiredService> {
protected:
    Lines HearOffer(const SdEntry& offer = Offer()) { return Hear({offer}, kProviderSd); }
    Lines HearAck(std::uint32_t ttl = 3) {
        return Hear({Entry(SdEntryType::kSubscribeAck, ttl)}, kProviderSd);
    }

    /// Found and subscribed to eventgroup 1 at time 0.
    void Connect() {
        mMachine.Start(mWorld.now);
        mMachine.Subscribe(1, mWorld.now);
        ASSERT_THAT(HearOffer(), ElementsAre("0 up", "0 127.0.0.2:30490: subscribe 1"));
        ASSERT_THAT(HearAck(), IsEmpty());
    }
};

TEST_F(RequiredServiceTest, LooksWithDelayAndRepetitionsAndThenRests) {
    mMachine.Start(mWorld.now);
    EXPECT_THAT(Advance(1h),
                ElementsAre("55 all: find", "255 all: find", "655 all: find", "1455 all: find"));
    EXPECT_FALSE(mMachine.NextDeadline());
}

TEST_F(RequiredServiceTest, OfferEndsTheSearchAndAMulticastOneIsAnsweredWithDelay) {
    mMachine.Start(mWorld.now);
    mMachine.Subscribe(1, mWorld.now);
    mMachine.Subscribe(2, mWorld.now);
    EXPECT_THAT(Hear({Offer()}, kProviderSd, true), ElementsAre("0 up"));
    EXPECT_THAT(Advance(100ms), ElementsAre("30 127.0.0.2:30490: subscribe 1 subscribe 2"));
}

TEST_F(RequiredServiceTest, SubscriptionIsRenewedByOffersAndByItselfBeforeItEnds) {
    Connect();
    Advance(1s);
    EXPECT_THAT(HearOffer(Offer(100)), ElementsAre("1000 127.0.0.2:30490: subscribe 1"));
    HearAck();
    EXPECT_THAT(Advance(1600ms), ElementsAre("2500 127.0.0.2:30490: subscribe 1"));
    HearAck();
    EXPECT_THAT(HearAck(), IsEmpty());
}

TEST_F(RequiredServiceTest, SubscribeWithoutAnswerGoesOutAgainBehindItsEnd) {
    mMachine.Start(mWorld.now);
    mMachine.Subscribe(1, mWorld.now);
    HearOffer(Offer(100));
    EXPECT_THAT(Advance(1600ms), ElementsAre("750 127.0.0.2:30490: stop-subscribe 1 subscribe 1",
                                             "1500 127.0.0.2:30490: stop-subscribe 1 subscribe 1"));
}

TEST_F(RequiredServiceTest, RefusedSubscribeIsTriedAgainAfterAPauseAndToldOnce) {
    Connect();
    EXPECT_THAT(HearAck(0), ElementsAre("0 refused"));
    Advance(1s);
    EXPECT_THAT(HearOffer(Offer(100)), IsEmpty());
    EXPECT_THAT(Advance(1s), ElementsAre("2000 127.0.0.2:30490: subscribe 1"));
    EXPECT_THAT(HearAck(0), IsEmpty());
    EXPECT_THAT(Advance(2s), ElementsAre("4000 127.0.0.2:30490: subscribe 1"));
}

TEST_F(RequiredServiceTest, OfferThatRunsOutBeginsANewSearchAndAWithdrawalDoesNot) {
    Connect();
    EXPECT_THAT(Advance(3300ms),
                ElementsAre("1500 127.0.0.2:30490: subscribe 1",
                            "2250 127.0.0.2:30490: stop-subscribe 1 subscribe 1", "3000 lapsed",
                            "3000 down", "3055 all: find", "3255 all: find"));
    EXPECT_THAT(HearOffer(), ElementsAre("3300 up", "3300 127.0.0.2:30490: subscribe 1"));
    EXPECT_THAT(HearOffer(Offer(0)), ElementsAre("3300 down"));
    EXPECT_THAT(Advance(1h), IsEmpty());
}

TEST_F(RequiredServiceTest, OfferMayHoldUntilReboot) {
    mMachine.Start(mWorld.now);
    HearOffer(Offer(someip::kTtlUntilReboot));
    EXPECT_FALSE(mMachine.NextDeadline());
}

TEST_F(RequiredServiceTest, ProviderThatHasRebootedIsSubscribedAnewOnceItOffersAgain) {
    Connect();
    EXPECT_THAT(Hear({Offer()}, kProviderSd, false, true),
                ElementsAre("0 127.0.0.2:30490: subscribe 1"));
    HearAck();
    EXPECT_THAT(Hear({}, kStranger, true, true), IsEmpty());
    EXPECT_THAT(Hear({}, kProviderSd, true, true), ElementsAre("0 lapsed", "0 down"));
    EXPECT_THAT(HearOffer(), ElementsAre("0 up", "0 127.0.0.2:30490: subscribe 1"));
}

TEST_F(RequiredServiceTest, AnotherSubscriberMakesTheSubscriptionAnewAndTheLastOneEndsIt) {
    Connect();
    mMachine.Subscribe(1, mWorld.now);
    EXPECT_THAT(mWorld.Take(), ElementsAre("0 127.0.0.2:30490: stop-subscribe 1 subscribe 1"));
    mMachine.Unsubscribe(1);
    EXPECT_THAT(mWorld.Take(), ElementsAre("0 127.0.0.2:30490: stop-subscribe 1"));
    EXPECT_THAT(HearOffer(), IsEmpty());
    mMachine.Subscribe(2, mWorld.now);
    mMachine.Stop();
    EXPECT_THAT(mWorld.Take(), ElementsAre("0 127.0.0.2:30490: subscribe 2",
                                           "0 127.0.0.2:30490: stop-subscribe 2"));
    EXPECT_FALSE(mMachine.NextDeadline());
}

TEST_F(RequiredServiceTest, OffersThatAreNotForItOrLeadElsewhereAreNotTaken) {
    mMachine.Start(mWorld.now);
    std::vector<SdEntry> wrong(8, Offer());
    wrong[0].serviceId = 0x1235;
    wrong[1].instanceId = 2;
    wrong[2].majorVersion = 3;
    wrong[3].endpoints.clear();
    wrong[4].endpoints.push_back(kProvider);
    wrong[5].endpoints = {{0xE0000001, 4000}};
    wrong[6].endpoints = {{kProvider.address, 0}};
    wrong[7].refersToNothing = true;
    EXPECT_THAT(
        Hear(wrong, kProviderSd),
        ElementsAre("0 complaint: the Offer of 127.0.0.2:30490 has no UDP endpoint",
                    "0 complaint: the Offer of 127.0.0.2:30490 has several UDP endpoints",
                    "0 complaint: the Offer of 127.0.0.2:30490 leads to another host",
                    "0 complaint: the Offer of 127.0.0.2:30490 leads to port 0",
                    "0 complaint: the Offer of 127.0.0.2:30490 refers to options that are not "
                    "there"));
    EXPECT_THAT(Hear({Offer()}, kStranger),
                ElementsAre("0 complaint: the Offer of 127.0.0.9:30490 leads to another host"));
    EXPECT_FALSE(mMachine.IsAvailable());
}

TEST_F(RequiredServiceTest, ARivalNeitherReplacesNorWithdrawsTheOffer) {
    Connect();
    SdEntry rival = Offer();
    rival.endpoints = {{kStranger.address, 4000}};
    EXPECT_THAT(Hear({rival}, kStranger, true),
                ElementsAre("0 complaint: the Offer of 127.0.0.9:30490 stands beside that of "
                            "127.0.0.2:30490"));
    rival.ttl = 0;
    EXPECT_THAT(Hear({rival, Entry(SdEntryType::kSubscribeAck, 0)}, kStranger), IsEmpty());
    EXPECT_TRUE(mMachine.IsAvailable());
}

class ProvidedServiceTest : public DiscoveryTest<ServerEnvironment, ProvidedService> {
protected:
    void OfferIt() {
        mMachine.Offer(mWorld.now);
        Advance(3s);
    }

    std::size_t Receivers() { return mMachine.Receivers(1, mWorld.now).size(); }
};

TEST_F(ProvidedServiceTest, OffersWithDelayRepetitionsAndThenCyclically) {
    mMachine.Offer(mWorld.now);
    EXPECT_THAT(Advance(4s), ElementsAre("55 all: offer", "255 all: offer", "655 all: offer",
                                         "1455 all: offer", "2455 all: offer", "3455 all: offer"));
    mMachine.StopOffer();
    EXPECT_THAT(mWorld.Take(), ElementsAre("4000 all: stop-offer"));
    EXPECT_FALSE(mMachine.NextDeadline());
}

TEST_F(ProvidedServiceTest, AnswersTheFindsThatMeanIt) {
    SdEntry find = Entry(SdEntryType::kFindService, 3);
    find.minorVersion = someip::kAnyMinorVersion;
    mMachine.Offer(mWorld.now);
    EXPECT_THAT(Hear({find}, kClientSd), IsEmpty()) << "the first Offer is about to come";
    Advance(1500ms);
    EXPECT_THAT(Hear({find}, kClientSd), ElementsAre("1500 127.0.0.3:30490: offer"));
    Hear({find, find}, kClientSd, true);
    EXPECT_THAT(Advance(100ms), ElementsAre("1530 127.0.0.3:30490: offer"));
    SdEntry any = find;
    any.instanceId = someip::kAnyInstanceId;
    any.majorVersion = someip::kAnyMajorVersion;
    EXPECT_THAT(Hear({any}, kClientSd), ElementsAre("1600 127.0.0.3:30490: offer"));

    std::vector<SdEntry> others(4, find);
    others[0].serviceId = 0x1235;
    others[1].instanceId = 2;
    others[2].majorVersion = 3;
    others[3].minorVersion = 7;
    EXPECT_THAT(Hear(others, kClientSd), IsEmpty());
}

TEST_F(ProvidedServiceTest, FirstValuesFollowTheAckOfANewSubscriptionOnly) {
    OfferIt();
    EXPECT_THAT(Hear({Subscribe()}, kClientSd),
                ElementsAre("3000 127.0.0.3:30490: ack 1", "3000 values 1 to 127.0.0.3:5000"));
    EXPECT_THAT(Hear({Subscribe()}, kClientSd), ElementsAre("3000 127.0.0.3:30490: ack 1"));
    EXPECT_THAT(Hear({Subscribe(0), Subscribe()}, kClientSd),
                ElementsAre("3000 127.0.0.3:30490: ack 1", "3000 values 1 to 127.0.0.3:5000"));
    EXPECT_THAT(Hear({Subscribe()}, kClientSd, true), IsEmpty()) << "not by multicast";
    Advance(2999ms);
    EXPECT_EQ(Receivers(), 1U);
    Advance(1ms);
    EXPECT_EQ(Receivers(), 0U);
}

TEST_F(ProvidedServiceTest, SubscriptionsEndWithTheirClientOrTheOffer) {
    OfferIt();
    const SdEntry endless = Subscribe(someip::kTtlUntilReboot);
    Hear({endless}, kClientSd);
    Advance(24h);
    EXPECT_EQ(Receivers(), 1U);
    Hear({}, kStranger, false, true);
    EXPECT_EQ(Receivers(), 1U);
    Hear({}, kClientSd, true, true);
    EXPECT_EQ(Receivers(), 0U);
    Hear({endless}, kClientSd);
    Hear({Subscribe(0)}, kClientSd);
    EXPECT_EQ(Receivers(), 0U);
    Hear({endless}, kClientSd);
    mMachine.StopOffer();
    EXPECT_EQ(Receivers(), 0U);
    EXPECT_THAT(Hear({endless}, kClientSd), testing::Contains(testing::HasSubstr("nack 1")));
}

TEST_F(ProvidedServiceTest, WhatItCannotServeIsRefusedAndItsEndNotAnswered) {
    OfferIt();
    std::vector<SdEntry> wrong(8, Subscribe());
    wrong[0].serviceId = 0x1235;
    wrong[1].instanceId = 2;
    wrong[2].majorVersion = 3;
    wrong[3].eventgroupId = 3;
    wrong[4].endpoints.clear();
    wrong[5].endpoints = {{kStranger.address, 5000}};
    wrong[6].endpoints = {{0xFFFFFFFF, 5000}};
    wrong[7].refersToNothing = true;
    for (SdEntry& entry : wrong) {
        EXPECT_THAT(Hear({entry}, kClientSd),
                    ElementsAre(testing::HasSubstr("is refused"), testing::HasSubstr(": nack ")));
        entry.ttl = 0;
    }
    EXPECT_THAT(Hear(wrong, kClientSd), IsEmpty());
    EXPECT_EQ(Receivers(), 0U);
}

TEST_F(ProvidedServiceTest, HoldsNoMoreSubscriptionsThanItsLimit) {
    OfferIt();
    SdEntry subscribe = Subscribe();
    for (std::size_t i = 0; i < ProvidedService::kMaxSubscriptions; ++i) {
        ++subscribe.endpoints.front().port;
        Hear({subscribe}, kClientSd);
    }
    ++subscribe.endpoints.front().port;
    EXPECT_THAT(Hear({subscribe}, kClientSd), testing::Contains(testing::HasSubstr("nack")));
    EXPECT_EQ(Receivers(), ProvidedService::kMaxSubscriptions);
}

TEST(SdSessions, CountPerReceiverAndEndTheRebootFlagWithTheFirstRound) {
    someip::SdSessions sessions;
    EXPECT_EQ(sessions.NextMulticast(), (SdStamp{1, true}));
    EXPECT_EQ(sessions.NextMulticast(), (SdStamp{2, true}));
    EXPECT_EQ(sessions.NextUnicast(kClientSd), (SdStamp{1, true}));
    EXPECT_EQ(sessions.NextUnicast(kStranger), (SdStamp{1, true}));
    for (unsigned i = 2; i < 0xFFFF; ++i) {
        sessions.NextUnicast(kClientSd);
    }
    EXPECT_EQ(sessions.NextUnicast(kClientSd), (SdStamp{0xFFFF, true}));
    EXPECT_EQ(sessions.NextUnicast(kClientSd), (SdStamp{1, false}));
}

TEST(RebootDetector, TellsARebootFromTheFlagAndTheSessionIds) {
    const struct {
        SdStamp before;
        SdStamp after;
        bool rebooted;
    } kCases[] = {
        {{1, true}, {2, true}, false},      {{7, true}, {1, true}, true},
        {{7, true}, {7, true}, true},       {{0xFFFF, true}, {1, false}, false},
        {{9, false}, {3, false}, false},    {{9, false}, {10, true}, true},
        {{0xFFFF, false}, {1, true}, true},
    };
    for (const auto& expected : kCases) {
        for (const bool multicast : {false, true}) {
            someip::RebootDetector detector;
            EXPECT_FALSE(detector.HasRebooted(kClientSd, multicast, expected.before));
            EXPECT_FALSE(detector.HasRebooted(kClientSd, !multicast, {1, true}));
            EXPECT_FALSE(detector.HasRebooted(kStranger, multicast, {1, true}));
            EXPECT_EQ(detector.HasRebooted(kClientSd, multicast, expected.after), expected.rebooted)
                << expected.before.sessionId << " " << expected.after.sessionId;
        }
    }
}

TEST(RebootDetector, OneRebootIsNotFoundTwice) {
    someip::RebootDetector detector;
    detector.HasRebooted(kClientSd, true, {7, true});
    detector.HasRebooted(kClientSd, false, {7, true});
    EXPECT_TRUE(detector.HasRebooted(kClientSd, true, {1, true}));
    EXPECT_FALSE(detector.HasRebooted(kClientSd, false, {1, true}));
}

}  // namespace
