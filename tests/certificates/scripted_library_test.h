#pragma once

#include <gmock/gmock.h>

#include "certificates/scripted_crypto_library.h"
#include "testing/captured_log.h"

namespace testing_support {

/// What the tests on the scripted libraries have in common; each begins with nothing scripted.
class ScriptedLibraryTest : public testing::Test {
protected:
    using CapturedLog = testing_support::CapturedLog;

    ScriptedLibraryTest() { mLibrary.Reset(); }

    ScriptedCryptoLibrary& mLibrary = ScriptedCryptoLibrary::Get();
};

}  // namespace testing_support
