#include <ara/log/logger.h>

#include "registry.h"

namespace ara::log {

bool Logger::IsLogEnabled(LogLevel level) const noexcept {
    return level != LogLevel::kOff &&
           level <= internal::Registry::Instance().EffectiveLevel(mOwnLevel);
}

}  // namespace ara::log
