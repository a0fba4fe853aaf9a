#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <unordered_map>

#include "process/ini_file_reader_if.h"

namespace ini_file_reader {

/// The reader of files in the file system. It has no state: any thread may use it, each with a map
/// of its own, and the caller keeps that map.
///
/// The file is closed before a call returns, and no child process inherits it. A failure is logged
/// at Error level with its reason: a null map (no line for that), a file that can't be opened, a
/// line that is too long or not ASCII. An empty map then keeps the pairs of the lines before it.
class IniFileReader : public IniFileReaderIf {
public:
    int ReadIniFile(
        std::string path,
        std::shared_ptr<std::unordered_map<std::string, std::string>> settings) override;
    int ReadIniFile(std::string path,
                    std::shared_ptr<std::unordered_map<std::string, std::string>> settings,
                    bool removeWhitespace) override;

private:
    using Settings = std::unordered_map<std::string, std::string>;

    static int ParseIniFile(const std::string& path, Settings& settings, bool removeWhitespace);
    static int ParseLines(std::FILE* file, Settings& pairs, bool removeWhitespace);
};

}  // namespace ini_file_reader
