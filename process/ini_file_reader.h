#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <unordered_map>

#include "process/ini_file_reader_if.h"

namespace ini_file_reader {

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
