#include "process/ini_file_reader.h"

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include <gtest/gtest.h>

#include "testing/captured_log.h"
#include "testing/temporary_directory.h"

namespace {

using Settings = std::unordered_map<std::string, std::string>;

class IniFileReaderTest : public ::testing::Test {
protected:
    int Read(const std::string& content, bool removeWhitespace = true) {
        mDirectory.Write("settings.ini", content);
        return ini_file_reader::IniFileReader().ReadIniFile(mPath, mSettings, removeWhitespace);
    }

    testing_support::TemporaryDirectory mDirectory;
    std::string mPath = mDirectory.File("settings.ini");
    std::shared_ptr<Settings> mSettings = std::make_shared<Settings>();
    testing_support::CapturedLog mLog;
};

TEST_F(IniFileReaderTest, EveryKindOfLineIsReadAsItsRuleSays) {
    struct Row {
        std::string content;
        bool removeWhitespace;
        int lineCount;
        Settings settings;
    };
    const std::string longLine = "k=" + std::string(1998, 'v');
    const std::vector<Row> rows{
        {"", true, 0, {}},
        {"a=1\nb=2", true, 2, {{"a", "1"}, {"b", "2"}}},
        {"a=1\n\n", true, 2, {{"a", "1"}}},
        {"[section]\na=1\n#b=2\n[b]\n", true, 4, {{"a", "1"}}},
        {"key=a=b\nflag\nempty=\n=value\n;c=d\n",
         true,
         5,
         {{"key", "a=b"}, {"flag", "flag"}, {"empty", ""}, {"", "value"}, {";c", "d"}}},
        {"x=1\nx=2\n", true, 2, {{"x", "1"}}},
        {" a b\t=\vc d\r\n   # comment\n \t \n [s]\n", true, 4, {{"ab", "cd"}}},
        {" a =b \r\n # c\n \n\n", false, 4, {{" a ", "b \r"}, {" # c", " # c"}, {" ", " "}}},
        {longLine, true, 1, {{"k", std::string(1998, 'v')}}},
    };
    for (const Row& row : rows) {
        mSettings->clear();
        EXPECT_EQ(Read(row.content, row.removeWhitespace), row.lineCount) << row.content;
        EXPECT_EQ(*mSettings, row.settings) << row.content;
    }
    EXPECT_TRUE(mLog.Contains("D IniFileReader: Settings read from file " + mPath));
}

TEST_F(IniFileReaderTest, AMapWithEntriesTakesOnlyItsOwnKeys) {
    *mSettings = {{"a", "old"}, {"b", "old"}};
    EXPECT_EQ(Read("c=3\na=1\na=2\n"), 3);
    EXPECT_EQ(*mSettings, (Settings{{"a", "1"}, {"b", "old"}}));
}

TEST_F(IniFileReaderTest, AMissingFileOrABadLineEndsTheReading) {
    EXPECT_EQ(ini_file_reader::IniFileReader().ReadIniFile(mPath, mSettings), -1);
    EXPECT_TRUE(mLog.Contains("E IniFileReader: Reading file " + mPath +
                              " failed: No such file or directory"));
    struct Row {
        std::string line;
        std::string message;
    };
    const std::vector<Row> rows{
        {"k=" + std::string(1999, 'v'), "Incorrect format. Line too long."},
        {std::string(2001, ' '), "Incorrect format. Line too long."},
        {std::string(100000, '\xFF'), "Incorrect format. Line too long."},
        {"k=\x80", "Incorrect format. Non-ASCII character in file."},
        {"# \xC3\xA4", "Incorrect format. Non-ASCII character in file."},
    };
    for (const Row& row : rows) {
        mLog.Clear();
        mSettings->clear();
        EXPECT_EQ(Read("a=1\n" + row.line + "\nb=2\n"), -1);
        EXPECT_EQ(*mSettings, (Settings{{"a", "1"}})) << "what came before the line stays";
        EXPECT_TRUE(mLog.Contains("E IniFileReader: " + row.message));
        EXPECT_TRUE(mLog.Contains("E IniFileReader: Error reading file " + mPath));

        *mSettings = {{"a", "old"}};
        EXPECT_EQ(Read("a=1\n" + row.line), -1);
        EXPECT_EQ(*mSettings, (Settings{{"a", "old"}})) << "wanted keys change only at the end";
    }
}

}  // namespace
