#include "logging/qel_log_entry.h"

#include <array>
#include <cstdio>

namespace qel_logging {

QELLogEntry::QELLogEntry(const char* text) : mText(text == nullptr ? "" : text) {}

QELLogEntry& QELLogEntry::operator<<(long value) {
    mText += std::to_string(value);
    return *this;
}

QELLogEntry& QELLogEntry::operator<<(unsigned long value) {
    mText += std::to_string(value);
    return *this;
}

QELLogEntry& QELLogEntry::operator<<(unsigned int value) {
    mText += std::to_string(value);
    return *this;
}

QELLogEntry& QELLogEntry::operator<<(int value) {
    mText += std::to_string(value);
    return *this;
}

QELLogEntry& QELLogEntry::operator<<(unsigned short value) {
    return *this << static_cast<unsigned int>(value);
}

QELLogEntry& QELLogEntry::operator<<(unsigned char value) {
    return *this << static_cast<unsigned int>(value);
}

QELLogEntry& QELLogEntry::operator<<(const std::string& text) {
    mText += text;
    return *this;
}

QELLogEntry& QELLogEntry::operator<<(std::string_view text) {
    mText += text;
    return *this;
}

QELLogEntry& QELLogEntry::operator<<(const char* text) {
    if (text != nullptr) {
        mText += text;
    }
    return *this;
}

QELLogEntry& QELLogEntry::insertAsHex(unsigned char value) {
    std::array<char, 5> buffer{};
    std::snprintf(buffer.data(), buffer.size(), "0x%x", static_cast<unsigned int>(value));
    mText += buffer.data();
    return *this;
}

}  // namespace qel_logging
