#include "registered_handler.h"

#include <utility>

#include <boost/asio/post.hpp>

namespace someip {

void Deliver(const std::shared_ptr<RegisteredHandler>& registered, std::function<void()> call) {
    registered->pending.fetch_add(1);
    boost::asio::post(registered->strand, [registered, call = std::move(call)] {
        registered->gate.Run(call);
        registered->pending.fetch_sub(1);
    });
}

}  // namespace someip
