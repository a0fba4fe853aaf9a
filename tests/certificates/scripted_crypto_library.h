#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace testing_support {

/// How an operation of the scripted libraries ends.
struct Outcome {
    std::uint8_t mFlag = 0;
    std::uint8_t mCode = 0;
    bool mNullObject = false;
};

inline constexpr Outcome kNull{0, 0, true};

/// Stands in for the crypto and the container library: whatever links it enters these through
/// `initCryptoLib` and `SignedContainerFactory` and gets fakes that answer with texts made of
/// their arguments, or as scripted here. One per process, like the libraries.
class ScriptedCryptoLibrary {
public:
    static ScriptedCryptoLibrary& Get();

    /// Forgets scripts, calls and contents.
    void Reset();

    /// Lets a call of the operation, by its name in the library's interfaces, end so; the first
    /// one after `Reset` is number 1, and number 0 stands for all.
    void Script(const std::string& operation, Outcome outcome, int call = 0);

    /// Lets the call with this number, counted over all operations since `Reset`, end so whatever
    /// is scripted, and calls `reached` when it comes.
    void FailCall(std::size_t call, Outcome outcome, std::function<void()> reached);

    /// Notes the call under "operation arguments" and gives what is scripted for it.
    Outcome Enter(const std::string& operation, const std::string& arguments);

    /// How often the operation was called.
    int Count(const std::string& operation) const;

    /// Key ids, "STORE/ID", under which `checkKeyId` finds a pair.
    std::set<std::string> mKeyPairs;
    /// By operation, what it answers instead of a text made of its arguments.
    std::map<std::string, std::string> mTexts;
    std::int64_t mNotBefore = 0;
    std::int64_t mNotAfter = 0;

    std::vector<std::string> mCalls;
    /// Stores that somebody holds.
    int mLiveStores = 0;
    /// Written to standard error at each initialisation and clean-up.
    bool mTrace = false;

private:
    std::map<std::string, std::map<int, Outcome>> mScripts;
    std::map<std::string, int> mCounts;
    std::size_t mFailingCall = 0;
    Outcome mFailure;
    std::function<void()> mReached;
};

}  // namespace testing_support
