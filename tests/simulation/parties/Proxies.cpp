// SPDX-License-Identifier: MIT
#include "parties/Proxies.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <utility>

#include "kel-http/curl/Engine.h"
#include "parties/Bytes.h"
#include "parties/Credentials.h"
#include "parties/TlsPeer.h"

namespace kel::http::simulation {
namespace {

constexpr std::int64_t most_proxies = 9;
constexpr std::uint16_t proxy_port = 3128;

std::uint32_t ipOf(std::int64_t proxy) {
    return 0x0A000100U + static_cast<std::uint32_t>(proxy);
}

// "10.0.0.1" without a name server, 0 for a name.
std::uint32_t numbersIn(const std::string& host) {
    std::uint32_t ip = 0;
    if (host.find_first_not_of("0123456789.") != std::string::npos) return 0;
    const char* rest = host.c_str();
    for (int number = 0; number < 4; ++number) {
        char* end = nullptr;
        ip = ip << 8U | static_cast<std::uint32_t>(std::strtoul(rest, &end, 10));
        rest = *end == '.' ? end + 1 : end;
    }
    return ip;
}

}  // namespace

// One connection to a proxy: what comes behind a CONNECT that went well is the server's.
class ProxyPeer : public Peer {
 public:
    ProxyPeer(Proxies& proxies, std::int64_t id) : proxies_(proxies), proxy_(proxies.script_.proxy(id)) {}

    void onBytes(Link& link, std::string_view bytes) override {
        if (server_) return server_->onBytes(link, bytes);
        received_ += bytes;
        const auto end = received_.find("\r\n\r\n");
        if (ended_ || end == std::string::npos) return;
        const std::string head = received_.substr(0, end + 4);
        received_.erase(0, end + 4);
        answer(link, head);
    }

    void onClose() override {
        if (server_) server_->onClose();
    }

 private:
    // "CONNECT host:port HTTP/1.1"
    static Address targetOf(World& world, const std::string& head, Time& delay) {
        const auto begin = head.find(' ') + 1;
        const auto colon = head.find(':', begin);
        const std::string host = head.substr(begin, colon - begin);
        const auto port = static_cast<std::uint16_t>(std::strtoul(head.c_str() + colon + 1, nullptr, 10));
        if (const std::uint32_t ip = numbersIn(host)) return {ip, port};
        const auto found = world.names.find(host);
        if (found == world.names.end() || found->second.addresses.empty()) return {};
        delay = found->second.delay;
        return {found->second.addresses.back(), port};
    }

    bool knows(const std::string& head) const {
        return proxy_.challenge == Challenge::none ||
               headerIn(head, "Proxy-Authorization") == basicCredentials(proxy_user, proxy_password);
    }

    void answer(Link& link, const std::string& head) {
        World& world = proxies_.world_;
        world.note("proxy", std::to_string(proxy_.id) + " is asked: " + head.substr(0, head.find('\r')));
        const bool is_tunnel = head.compare(0, 8, "CONNECT ") == 0;
        const bool known = knows(head);
        const std::int64_t status = !is_tunnel ? 405 : known ? proxy_.status : 407;
        ProxyAsk ask;
        ask.at = world.now();
        ask.proxy = proxy_.id;
        ask.target = head.substr(0, head.find('\r'));
        ask.status = status;
        ask.withCredentials = !headerIn(head, "Proxy-Authorization").empty();
        proxies_.observation_.proxyAsks.push_back(std::move(ask));
        if (status == 200) {
            makeTunnel(link, head);
        } else {
            send(link, status, world.now() + Time(proxy_.delay));
        }
    }

    void makeTunnel(Link& link, const std::string& head) {
        World& world = proxies_.world_;
        Time delay(0);
        const Address target = targetOf(world, head, delay);
        const Network::Acceptance acceptance = world.network.acceptAt(target, link);
        if (acceptance.delay == Never) return;
        const Time at = world.now() + Time(proxy_.delay) + delay + acceptance.delay;
        link.faults = acceptance.faults;
        if (send(link, acceptance.error != 0 ? 502 : 200, at) && acceptance.error == 0) server_ = acceptance.peer;
    }

    std::string textOf(std::int64_t status) const {
        std::string text = "HTTP/1.1 " + std::to_string(status) + " Said the proxy\r\n";
        if (status == 407) text += "Proxy-Authenticate: Basic realm=\"proxy\"\r\n";
        if (status == 407 && proxy_.closes != 0) text += "Connection: close\r\n";
        for (std::int64_t number = 0; number < proxy_.headers; ++number)
            text += "P" + std::to_string(number) + ": p\r\n";
        if (status == 200) return text + "\r\n";
        text += "Content-Length: " + std::to_string(proxy_.body) + "\r\n\r\n";
        return text + contents(-1000 - proxy_.id, proxy_.body);
    }

    // False: not all of it.
    bool send(Link& link, std::int64_t status, Time at) {
        std::string text = textOf(status);
        const bool is_cut = proxy_.cut != Cut::none && proxy_.cutAt < static_cast<std::int64_t>(text.size());
        if (is_cut) text.resize(static_cast<std::size_t>(proxy_.cutAt));
        if (!text.empty()) link.send(at, std::move(text));
        ended_ = is_cut || (status == 407 && proxy_.closes != 0);
        if (is_cut && proxy_.cut == Cut::stall) return false;
        if (is_cut && proxy_.cut == Cut::reset) {
            link.reset(at);
        } else if (ended_) {
            link.finish(at);
        }
        return !ended_;
    }

    Proxies& proxies_;
    const ProxyScript proxy_;
    std::string received_;
    std::shared_ptr<Peer> server_;
    // Nothing is answered any more.
    bool ended_ = false;
};

Proxies::Proxies(World& world, const Script& script, Observation& observation)
    : world_(world), script_(script), observation_(observation) {
    for (std::int64_t id = 1; id <= most_proxies; ++id) {
        world.network.listen({ipOf(id), proxy_port}, [this, id](Link&) { return accept(id); });
    }
}

std::int64_t Proxies::at(std::uint32_t ip) {
    return ip > ipOf(0) && ip <= ipOf(most_proxies) ? ip - ipOf(0) : 0;
}

Network::Acceptance Proxies::accept(std::int64_t id) {
    observation_.proxyLinks.push_back({world_.now(), id, observation_.arrivals.size()});
    const ProxyScript known = script_.proxy(id);
    Network::Acceptance acceptance;
    acceptance.delay = known.connect == Connect::silent ? Never : Time(known.connectDelay);
    if (known.connect == Connect::refuse) acceptance.error = ECONNREFUSED;
    acceptance.peer = std::make_shared<ProxyPeer>(*this, id);
    return acceptance;
}

std::string Proxies::url(const ProxyScript& proxy) {
    static constexpr std::array<std::string_view, 3> credentials = {"", "proxy%20user:s%40cret@",
                                                                    "proxy%20user:wrong@"};
    const auto which = static_cast<std::size_t>(std::clamp<std::int64_t>(proxy.credentials, 0, 2));
    return "http://" + std::string(credentials[which]) + "10.0.1." + std::to_string(proxy.id) + ":" +
           std::to_string(proxy_port);
}

void setUpProxies(Engine& engine, const Script& script) {
    switch (script.world.proxyMode) {
        case ProxyMode::off:
            return;
        case ProxyMode::list:
            return engine.setProxyConfig(Engine::ProxyConfigMode::PACUrl, {}, {}, {});
        case ProxyMode::manual:
            break;
    }
    ProxyScript proxy = script.proxy(script.world.proxy);
    const std::string user = proxy.credentials == 0 ? std::string() : std::string(proxy_user);
    const std::string password = proxy.credentials == 1 ? std::string(proxy_password) : "wrong";
    proxy.credentials = 0;
    engine.setProxyConfig(Engine::ProxyConfigMode::Manual, Proxies::url(proxy), user, password);
}

void addNetwork(RequestConfig& config, const Script& script, const RequestScript& request) {
    if (script.world.proxyMode != ProxyMode::off && request.proxies > 0) {
        config.proxy = Proxy::use_proxy;
        if (script.world.proxyMode == ProxyMode::list) {
            for (const char id : std::to_string(request.proxies)) {
                if (id != '0') config.proxies.push_back(Proxies::url(script.proxy(id - '0')));
            }
        }
    }
    addIdentity(config, script);
    if (request.login == Login::none) return;
    config.user = server_user;
    config.password = request.login == Login::wrong ? "wrong" : std::string(server_password);
    config.auth_method = request.login == Login::basic ? AuthMethod::BASIC : AuthMethod::ANY;
}

}  // namespace kel::http::simulation
