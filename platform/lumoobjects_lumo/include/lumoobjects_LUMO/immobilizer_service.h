#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <lumo/lumo_accessor.h>
#include <lumoutil/optional.h>

namespace lumoobjects_LUMO {

/// The immobilizer service of the vehicle, as a connected client sees it. Any thread.
class ImmobilizerService {
public:
    /// The fields of the record, by their numbers on the wire.
    enum class INFO_FIELDS : std::uint32_t { kId = 0, kVehicleIdentificationNumber = 5 };

    /// How the server is to look the record up.
    enum class QUERY_OPTION : std::uint32_t { kDefault = 0 };

    /// Describes a query.
    class InfoDescriptor {
    public:
        /// Names the fields that are wanted; without a call no field is.
        void setQueryOptions(std::vector<INFO_FIELDS> fields, QUERY_OPTION option);

        std::string getServiceName() const { return ImmobilizerService::getServiceName(); }

        /// The query part of the URL.
        std::string toQuery() const;

    private:
        std::vector<INFO_FIELDS> mFields;
        QUERY_OPTION mOption = QUERY_OPTION::kDefault;
    };

    /// The record. Immutable.
    class Info {
    public:
        using Descriptor = InfoDescriptor;

        explicit Info(lumoutil::Optional<std::string> vehicleIdentificationNumber)
            : mVehicleIdentificationNumber(std::move(vehicleIdentificationNumber)) {}

        /// Reads the first record of a response body; null if it has none. Throws std::exception
        /// if the body is malformed.
        static std::shared_ptr<const Info> parseFirst(const std::string& body);

        lumoutil::Optional<std::string> getVehicleIdentificationNumber() const {
            return mVehicleIdentificationNumber;
        }

    private:
        lumoutil::Optional<std::string> mVehicleIdentificationNumber;
    };

    explicit ImmobilizerService(std::shared_ptr<lumo::LumoAccessor> accessor)
        : mAccessor(std::move(accessor)) {}

    static std::string getServiceName();

    /// Never null.
    std::shared_ptr<lumo::LumoAccessor> getAccessor() const { return mAccessor; }

private:
    std::shared_ptr<lumo::LumoAccessor> mAccessor;
};

}  // namespace lumoobjects_LUMO
