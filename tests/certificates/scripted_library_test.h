#pragma once

#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "certificates/log_text.h"
#include "certificates/scripted_crypto_library.h"

namespace testing_support {

/// What the tests on the scripted libraries have in common; each begins with nothing scripted.
class ScriptedLibraryTest : public testing::Test {
protected:
    using CapturedLog = testing_support::CapturedLog;

    ScriptedLibraryTest() { mLibrary.Reset(); }

    static std::vector<std::string> LogText(const CapturedLog& log) {
        return testing_support::LogText(log);
    }

    ScriptedCryptoLibrary& mLibrary = ScriptedCryptoLibrary::Get();
};

}  // namespace testing_support
