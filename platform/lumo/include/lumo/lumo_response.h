#pragma once

#include <memory>
#include <stdexcept>
#include <string>

namespace lumo {

/// Why a query got no usable answer: not connected, no answer in time, unreadable answer.
class HttpException : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The answer to a query, or the lack of one. Immutable.
class LumoResponse {
public:
    /// The server answered.
    LumoResponse(int statusCode, std::string body);

    /// There is no usable answer. `statusCode` is 0 if there is no answer at all.
    LumoResponse(int statusCode, const HttpException& exception);

    /// The HTTP status, 0 if there is no answer.
    int getStatusCode() const { return mStatusCode; }

    /// Null if the server gave a well-formed answer, whatever its status.
    std::shared_ptr<const HttpException> getHttpException() const { return mException; }

    const std::string& getBody() const { return mBody; }

    /// Status 2xx and no exception.
    bool isSuccess() const;

private:
    int mStatusCode;
    std::string mBody;
    std::shared_ptr<const HttpException> mException;
};

}  // namespace lumo
