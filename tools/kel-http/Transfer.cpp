// SPDX-License-Identifier: MIT
#include "Transfer.h"

#include <poll.h>

#include <array>
#include <cerrno>
#include <system_error>

#include "StopSignals.h"
#include "kel-http/Client.h"
#include "kel-http/curl/Engine.h"
#include "ko/loop_executor.h"

namespace kel::http::tool {
namespace {

Client::RequestId start(Client& client, const RequestConfig& request, const std::optional<std::string>& file,
                        std::optional<Outcome>& outcome) {
    const auto on_response = [&outcome](Client::RequestId, const ResponseData& data) { outcome = data; };
    const auto on_error = [&outcome](Client::RequestId, const ErrorData& data) { outcome = data; };
    if (!file) return client.start_request(request, {}, on_response, on_error);
    const auto on_progress = [](Client::RequestId, const ProgressData&) {};
    return client.start_download(request, *file, {}, on_response, on_error, on_progress);
}

// A single proxy is for every request; of a list each request tries one after the other.
void set_proxies(Engine& engine, const Options& options) {
    using Mode = Engine::ProxyConfigMode;
    if (options.proxies.size() == 1) {
        engine.setProxyConfig(Mode::Manual, options.proxies.front(), options.proxy_user, options.proxy_password);
    } else if (options.proxies.size() > 1) {
        engine.setProxyConfig(Mode::PACUrl, {}, {}, {});
    }
}

// Waits until results or a stop signal are there; true for the signal.
bool wait(const ko::loop_executor& executor, const StopSignals& signals) {
    std::array<pollfd, 2> watched = {{{executor.descriptor(), POLLIN, 0}, {signals.descriptor(), POLLIN, 0}}};
    if (poll(watched.data(), watched.size(), -1) < 0 && errno != EINTR) {
        throw std::system_error(errno, std::generic_category(), "poll");
    }
    return watched[1].revents != 0;
}

}  // namespace

Outcome transfer(const RequestConfig& request, const Options& options, const std::optional<std::string>& file) {
    // From the last to the first: the engine's thread posts to the executor until it has ended.
    ko::loop_executor executor;
    std::optional<Outcome> outcome;
    std::optional<StopSignals> signals(std::in_place);
    Engine engine([](const std::function<void()>& closure) { closure(); });
    set_proxies(engine, options);
    const auto client = createClient(executor, *logging::getLogger("kel-http", 0));

    const Client::RequestId id = start(*client, request, file, outcome);
    while (!outcome) {
        const bool stopped = wait(executor, *signals);
        executor.drain();
        if (outcome || !stopped) continue;
        client->cancel_request(id);
        signals->consume();
        signals.reset();
        outcome = Cancelled{};
    }
    return *outcome;
}

}  // namespace kel::http::tool
