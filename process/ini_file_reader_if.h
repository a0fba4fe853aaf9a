#pragma once

#include <memory>
#include <string>
#include <unordered_map>

namespace ini_file_reader {

/// Reads a file of keys and values, one pair a line: the key before the first "=", the value after
/// it. A line without "=" is its own key and value. Lines that begin with "#" or "[" are skipped,
/// so sections open no name space. A line has at most 2000 characters, all of them ASCII.
class IniFileReaderIf {
public:
    virtual ~IniFileReaderIf() = default;

    /// ReadIniFile with the removal of whitespace.
    virtual int ReadIniFile(
        std::string path,
        std::shared_ptr<std::unordered_map<std::string, std::string>> settings) = 0;

    /// Reads the file into `settings`. If `settings` has entries, only their keys are looked for,
    /// and they change only once the whole file has been read; an empty map takes all pairs. The
    /// first of two lines with the same key counts. With `removeWhitespace`, all whitespace is
    /// removed from each line, inside keys and values too.
    ///
    /// Returns the number of lines read, or -1 on failure, which is logged.
    virtual int ReadIniFile(std::string path,
                            std::shared_ptr<std::unordered_map<std::string, std::string>> settings,
                            bool removeWhitespace) = 0;
};

}  // namespace ini_file_reader
