#include <vonta_socket/stream_protocol.h>

namespace vonta_socket {

void StreamProtocol::InsertUint8(std::vector<std::uint8_t>& data, const std::uint8_t& value) const {
    data.push_back(value);
}

bool StreamProtocol::InsertString(std::vector<std::uint8_t>& data, const std::string& value) const {
    if (value.size() > kMaxStringLength) {
        return false;
    }
    for (const unsigned int shift : {24U, 16U, 8U, 0U}) {
        data.push_back(static_cast<std::uint8_t>(value.size() >> shift));
    }
    data.insert(data.end(), value.begin(), value.end());
    return true;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the interface takes it by value
bool StreamProtocol::ReadUint8(std::shared_ptr<StreamCommunicatorIf> communicator,
                               std::uint8_t& value) const {
    std::vector<std::uint8_t> byte(1);
    if (!communicator || !communicator->Read(byte)) {
        return false;
    }
    value = byte.front();
    return true;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the interface takes it by value
bool StreamProtocol::ReadString(std::shared_ptr<StreamCommunicatorIf> communicator,
                                std::string& value) const {
    std::vector<std::uint8_t> header(4);
    if (!communicator || !communicator->Read(header)) {
        return false;
    }
    std::size_t length = 0;
    for (const std::uint8_t byte : header) {
        length = (length << 8U) | byte;
    }
    if (length > kMaxStringLength) {
        return false;
    }
    std::vector<std::uint8_t> text(length);
    if (length > 0 && !communicator->Read(text)) {
        return false;
    }
    value.assign(text.begin(), text.end());
    return true;
}

}  // namespace vonta_socket
