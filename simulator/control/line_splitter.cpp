#include "simulator/control/line_splitter.h"

namespace simulator {

std::optional<std::string> LineSplitter::Next() {
    const std::size_t end = mPending.find('\n');
    // True, too, if there is no line end.
    if (end > kMaxLine) {
        return std::nullopt;
    }
    std::string line = mPending.substr(0, end);
    mPending.erase(0, end + 1);
    return line;
}

}  // namespace simulator
