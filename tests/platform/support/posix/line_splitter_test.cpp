#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <posix/line_splitter.h>

namespace posix {

namespace {

using namespace std::string_literals;

constexpr std::size_t kLimit = 6;

/// The lines of a stream that is fed in pieces, in "()" if they are not whole; "!" each time that a
/// line is beyond the limit before its end has come.
std::vector<std::string> Lines(const std::string& stream, std::size_t pieceSize) {
    LineSplitter splitter(kLimit);
    std::vector<std::string> lines;
    bool tooLong = false;
    const auto add = [&](const LineSplitter::Line& line) {
        const std::string text(line.text);
        lines.push_back(line.whole ? text : "(" + text + ")");
    };
    for (std::size_t at = 0; at < stream.size(); at += pieceSize) {
        splitter.Feed(std::string_view(stream).substr(at, pieceSize));
        while (const auto line = splitter.Next()) {
            add(*line);
            tooLong = false;
        }
        if (splitter.IsTooLong() && !tooLong) {
            lines.emplace_back("!");
        }
        tooLong = splitter.IsTooLong();
    }
    if (const auto rest = splitter.Finish()) {
        add(*rest);
    }
    EXPECT_FALSE(splitter.IsTooLong());
    EXPECT_FALSE(splitter.Next() || splitter.Finish()) << "nothing is given twice";
    return lines;
}

TEST(LineSplitterTest, LinesAreTheSameHoweverTheirBytesCome) {
    const std::string stream = "one\n\nt\rwo\r\n123456\n12345\r\n1234567\nnul\0l\nrest"s;
    const std::vector<std::string> wanted{"one",   "",         "t\rwo",   "123456",
                                          "12345", "(123456)", "nul\0l"s, "(rest)"};
    EXPECT_EQ(Lines(stream, stream.size()), wanted);
    auto piecewise = wanted;
    piecewise.insert(piecewise.begin() + 5, "!");
    for (const std::size_t pieceSize : {1U, 2U, 4U}) {
        EXPECT_EQ(Lines(stream, pieceSize), piecewise) << pieceSize;
    }
}

TEST(LineSplitterTest, AnEndlessLineIsCutAndTheNextStreamBeginsAnew) {
    EXPECT_EQ(Lines(std::string(10000, 'x'), 100), (std::vector<std::string>{"!", "(xxxxxx)"}));
    LineSplitter splitter(kLimit);
    splitter.Feed("rest");
    EXPECT_FALSE(splitter.Next());
    EXPECT_EQ(splitter.Finish()->text, "rest");
    splitter.Feed("line\n");
    EXPECT_EQ(splitter.Next()->text, "line");
}

}  // namespace

}  // namespace posix
