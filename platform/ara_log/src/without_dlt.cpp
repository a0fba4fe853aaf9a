#include "dlt_output.h"

namespace ara::log::internal {

std::unique_ptr<DltOutput> DltOutput::Open(const std::string& /*appId*/,
                                           const std::string& /*description*/,
                                           LevelListener /*listener*/) {
    return nullptr;
}

}  // namespace ara::log::internal
