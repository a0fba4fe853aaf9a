#include <chrono>
#include <cstdlib>
#include <optional>
#include <string>

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

    bool IsSetAt(const char* zone, system_clock::duration sinceEpoch) {
        ::setenv("TZ", zone, 1);
        mNow = system_clock::time_point(sinceEpoch);
        return IsSystemTimeSet();
    }

    system_clock::time_point mNow;
    std::optional<std::string> mSavedZone;
};

TEST_F(SystemTimeTest, TheClockCountsAsSetOnceItHasLeftTheYearOfTheEpoch) {
    EXPECT_FALSE(IsSetAt("UTC0", std::chrono::seconds(0)));
    EXPECT_FALSE(IsSetAt("UTC0", 365 * kDay - std::chrono::nanoseconds(1)));
    EXPECT_TRUE(IsSetAt("UTC0", 365 * kDay));
    EXPECT_TRUE(IsSetAt("UTC0", 20000 * kDay));
    EXPECT_TRUE(IsSetAt("UTC0", -kDay)) << "an earlier year is another year, too";
    EXPECT_FALSE(IsSetAt("UTC0", kDay)) << "a clock that falls back is not set any more";
}

TEST_F(SystemTimeTest, TheYearIsThatOfTheLocalTimeZone) {
    EXPECT_FALSE(IsSetAt("EAST-5", std::chrono::seconds(0)));
    EXPECT_TRUE(IsSetAt("EAST-5", 365 * kDay - std::chrono::hours(5)));
    EXPECT_FALSE(IsSetAt("WEST5", std::chrono::hours(5) - std::chrono::seconds(1)));
    EXPECT_TRUE(IsSetAt("WEST5", std::chrono::hours(5)));
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
