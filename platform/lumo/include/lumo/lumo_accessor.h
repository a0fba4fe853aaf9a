#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include <lumo/lumo_response.h>

namespace lumo {

/// Queries the records of services, as long as the connection lives over which it was made. Any
/// thread.
class LumoAccessor {
public:
    using ResponseFunction = std::function<void(std::shared_ptr<const LumoResponse>)>;

    virtual ~LumoAccessor() = default;
    LumoAccessor(const LumoAccessor&) = delete;
    LumoAccessor& operator=(const LumoAccessor&) = delete;

    /// Asks for the first record that `descriptor` describes and returns at once. Exactly one of
    /// the two functions is called, on a thread of the library, within the query time limit:
    /// `success` with the record (null if there is none) on status 2xx with a readable body,
    /// `error` on everything else. Throws std::runtime_error, and calls neither, when the access
    /// layer was stopped or has too much to do.
    template <typename Info>
    void findFirst(
        const typename Info::Descriptor& descriptor,
        std::function<void(std::shared_ptr<const Info>, std::shared_ptr<const LumoResponse>)>
            success,
        ResponseFunction error) {
        query(descriptor.getServiceName(), descriptor.toQuery(),
              [success = std::move(success),
               error = std::move(error)](std::shared_ptr<const LumoResponse> response) {
                  std::shared_ptr<const Info> info;
                  if (response->isSuccess()) {
                      response = parse(response, info);
                  }
                  if (!response->isSuccess()) {
                      error(response);
                      return;
                  }
                  success(info, response);
              });
    }

protected:
    LumoAccessor() = default;

    /// Sends `query`, the query part of a URL, to the service. Unless it throws, `done` is called
    /// exactly once, on a thread of the library, and its argument is not null.
    virtual void query(const std::string& serviceName, const std::string& query,
                       ResponseFunction done) const = 0;

private:
    /// Returns `response`, or one with the reason why its body is no record.
    template <typename Info>
    static std::shared_ptr<const LumoResponse> parse(
        const std::shared_ptr<const LumoResponse>& response, std::shared_ptr<const Info>& info) {
        try {
            info = Info::parseFirst(response->getBody());
            return response;
        } catch (const std::exception& exception) {
            return std::make_shared<LumoResponse>(response->getStatusCode(),
                                                  HttpException(exception.what()));
        }
    }
};

}  // namespace lumo
