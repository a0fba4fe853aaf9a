#pragma once

#include <string>
#include <string_view>
#include <utility>

namespace qel_logging {

/// A log line under construction, filled by chained `operator<<`. Belongs to the thread that fills
/// it.
class QELLogEntry {
public:
    QELLogEntry() = default;
    explicit QELLogEntry(const std::string& text) : mText(text) {}
    explicit QELLogEntry(std::string&& text) : mText(std::move(text)) {}
    explicit QELLogEntry(const char* text);

    const std::string& Get() const { return mText; }
    void Clear() { mText.clear(); }

    /// Numbers are appended as plain decimal text, an `unsigned char` too; a null text as nothing.
    QELLogEntry& operator<<(long value);
    QELLogEntry& operator<<(unsigned long value);
    QELLogEntry& operator<<(unsigned int value);
    QELLogEntry& operator<<(int value);
    QELLogEntry& operator<<(unsigned short value);
    QELLogEntry& operator<<(unsigned char value);
    QELLogEntry& operator<<(const std::string& text);
    QELLogEntry& operator<<(std::string_view text);
    QELLogEntry& operator<<(const char* text);

    /// Appends the value in lower-case hexadecimal without padding: "0x5", "0xab".
    QELLogEntry& insertAsHex(unsigned char value);

private:
    std::string mText;
};

}  // namespace qel_logging
