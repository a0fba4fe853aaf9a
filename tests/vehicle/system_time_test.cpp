#include <chrono>
#include <cstdlib>
#include <optional>
#include <string>
#include <tuple>

#include <gtest/gtest.h>

#include "vehicle/system_time_impl.h"

namespace {

using std::chrono::system_clock;

constexpr std::chrono::hours kDay{24};

/// Judges a clock that the test sets, in a time zone that the test sets.
class SystemTimeTest : public ::testing::Test, protected vintrel::SystemTimeImpl {
protected:
    SystemTimeTest() {
        if (const char* zone = std::getenv("TZ")) {
            mSavedZone = zone;
        }
    }

    ~SystemTimeTest() override {
        if (mSavedZone) {
            ::setenv("TZ", mSavedZone->c_str(), 1);
        } else {
            ::unsetenv("TZ");
        }
    }

    system_clock::time_point Now() const override { return mNow; }

    system_clock::time_point mNow;
    std::optional<std::string> mSavedZone;
};

TEST_F(SystemTimeTest, TheClockCountsAsSetOnceItHasLeftTheYearOfTheEpochInItsTimeZone) {
    using std::chrono::hours;
    const std::tuple<const char*, system_clock::duration, bool> rows[] = {
        {"UTC0", hours(0), false},
        {"UTC0", 365 * kDay - std::chrono::nanoseconds(1), false},
        {"UTC0", 365 * kDay, true},
        {"UTC0", 20000 * kDay, true},
        {"UTC0", -kDay, true},  // an earlier year is another year, too
        {"UTC0", kDay, false},  // a clock that falls back is not set any more
        {"EAST-5", hours(0), false},
        {"EAST-5", 365 * kDay - hours(5), true},
        {"WEST5", hours(5) - std::chrono::seconds(1), false},
        {"WEST5", hours(5), true}};
    for (const auto& [zone, sinceEpoch, isSet] : rows) {
        ::setenv("TZ", zone, 1);
        mNow = system_clock::time_point(sinceEpoch);
        EXPECT_EQ(IsSystemTimeSet(), isSet) << zone << " " << sinceEpoch.count();
    }
    ::setenv("TZ", "WEST5", 1);
    EXPECT_EQ(GetYear(system_clock::time_point()), 1969);
    // What lies before the epoch is cut towards it.
    ::setenv("TZ", "UTC0", 1);
    EXPECT_EQ(GetYear(system_clock::time_point(std::chrono::milliseconds(-1))), 1970);
}

TEST_F(SystemTimeTest, TheRealClockIsSet) {
    const auto systemTime = vintrel::SystemTimeIf::Create();
    systemTime->Initialize();
    EXPECT_TRUE(systemTime->IsSystemTimeSet());
}

}  // namespace
