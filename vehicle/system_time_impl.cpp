#include "vehicle/system_time_impl.h"

#include <ctime>

#include "logging/qel_logging.h"

namespace vintrel {

namespace {

constexpr int kTmYearBase = 1900;

}  // namespace

std::shared_ptr<SystemTimeIf> SystemTimeIf::Create() {
    return std::make_shared<SystemTimeImpl>();
}

void SystemTimeImpl::Initialize() {}

bool SystemTimeImpl::IsSystemTimeSet() const {
    const int epochYear = GetYear(std::chrono::system_clock::time_point());
    const int nowYear = GetYear(Now());
    if (epochYear == 0 && nowYear == 0) {
        return false;
    }
    return epochYear != nowYear;
}

int SystemTimeImpl::GetYear(const std::chrono::system_clock::time_point& timePoint) const {
    const auto seconds =
        std::chrono::duration_cast<std::chrono::seconds>(timePoint.time_since_epoch());
    const std::time_t time = seconds.count();
    std::tm local{};
    // Unlike localtime, localtime_r does not look for a change of the time zone.
    ::tzset();
    if (::localtime_r(&time, &local) == nullptr) {
        qel_logging::QELLogging::LogError("Timeinfo is null!");
        return 0;
    }
    return local.tm_year + kTmYearBase;
}

std::chrono::system_clock::time_point SystemTimeImpl::Now() const {
    return std::chrono::system_clock::now();
}

}  // namespace vintrel
