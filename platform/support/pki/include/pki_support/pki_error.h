#pragma once

#include <stdexcept>

namespace pki_support {

/// Input that was refused, or work that failed; the text is for the operator.
class PkiError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace pki_support
