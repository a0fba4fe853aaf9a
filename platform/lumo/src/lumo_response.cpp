#include <utility>

#include <lumo/lumo_response.h>

namespace lumo {

namespace {

constexpr int kFirstSuccess = 200;
constexpr int kFirstAfterSuccess = 300;

}  // namespace

LumoResponse::LumoResponse(int statusCode, std::string body)
    : mStatusCode(statusCode), mBody(std::move(body)) {}

LumoResponse::LumoResponse(int statusCode, const HttpException& exception)
    : mStatusCode(statusCode), mException(std::make_shared<HttpException>(exception)) {}

bool LumoResponse::isSuccess() const {
    return !mException && mStatusCode >= kFirstSuccess && mStatusCode < kFirstAfterSuccess;
}

}  // namespace lumo
