// SPDX-License-Identifier: MIT
#include "Session.h"

#include <poll.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace kel::http::tool {
namespace {

// A single proxy is for every request; of a list each request tries one after the other.
void set_proxies(Engine& engine, const Options& options) {
    using Mode = Engine::ProxyConfigMode;
    if (options.proxies.size() == 1) {
        engine.setProxyConfig(Mode::Manual, options.proxies.front(), options.proxy_user, options.proxy_password);
    } else if (options.proxies.size() > 1) {
        engine.setProxyConfig(Mode::PACUrl, {}, {}, {});
    }
}

}  // namespace

Session::Session(const Options& options)
    : signals_(std::in_place),
      engine_([](const std::function<void()>& closure) { closure(); }),
      client_(createClient(executor_, *logging::getLogger("kel-http", 0))) {
    set_proxies(engine_, options);
}

bool Session::serve(std::optional<std::chrono::milliseconds> longest) {
    const bool stopped = wait(longest);
    executor_.drain();
    if (!stopped) return false;
    signals_->consume();
    signals_.reset();
    return true;
}

bool Session::wait(std::optional<std::chrono::milliseconds> longest) const {
    std::array<pollfd, 2> watched = {
        {{executor_.descriptor(), POLLIN, 0}, {signals_ ? signals_->descriptor() : -1, POLLIN, 0}}};
    const int timeout = longest ? static_cast<int>(longest->count()) : -1;
    if (poll(watched.data(), watched.size(), timeout) < 0 && errno != EINTR) {
        throw std::system_error(errno, std::generic_category(), "poll");
    }
    return watched[1].revents != 0;
}

}  // namespace kel::http::tool
