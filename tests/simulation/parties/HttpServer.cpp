// SPDX-License-Identifier: MIT
#include "parties/HttpServer.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "parties/Answer.h"
#include "parties/Proxies.h"
#include "parties/SentBody.h"
#include "parties/TlsPeer.h"

namespace kel::http::simulation {

// One connection: takes requests apart, one after the other, and plans the answers.
class HttpPeer : public Peer {
 public:
    HttpPeer(HttpServers& servers, std::int64_t host, std::int64_t proxy)
        : servers_(servers), host_(servers.script_.host(host)), number_(servers.connections_++), proxy_(proxy) {}

    void onBytes(Link& link, std::string_view bytes) override {
        Observation& seen = servers_.observation_;
        if (ended_) seen.unheard.push_back({servers_.world_.now(), host_.id, number_, seen.arrivals.size()});
        received_ += bytes;
        while (!ended_ && takeRequest(link)) {
        }
    }

 private:
    bool takeRequest(Link& link) {
        const auto end = received_.find("\r\n\r\n");
        if (end == std::string::npos) return false;
        const std::string head = received_.substr(0, end + 4);
        const std::size_t length = lengthIn(head);
        if (received_.size() < head.size() + length) {
            if (host_.headOnly > 0 && answered_ > 0) takeNoMore(link);
            return false;
        }
        const std::string body = received_.substr(head.size(), length);
        received_.erase(0, head.size() + length);
        answer(link, head, body);
        return true;
    }

    void takeNoMore(Link& link) {
        ended_ = true;
        link.takeNothing();
        link.reset(servers_.world_.now() + Time(host_.headOnly));
    }

    static std::size_t lengthIn(const std::string& head) {
        const auto field = head.find("\r\nContent-Length: ");
        return field == std::string::npos ? 0 : std::strtoul(head.c_str() + field + 18, nullptr, 10);
    }

    Arrival arrivalOf(const std::string& head, const std::string& body) const {
        Arrival arrival;
        arrival.at = servers_.world_.now();
        arrival.host = host_.id;
        arrival.method = head.substr(0, head.find(' '));
        char* rest = nullptr;
        arrival.exchange = std::strtoll(head.c_str() + head.find('/') + 1, &rest, 10);
        arrival.request = *rest == '/' ? std::strtoll(rest + 1, nullptr, 10) : -1;
        const RequestScript* const asked = servers_.script_.request(arrival.request);
        const bool has_body = asked != nullptr && arrival.method == nameOf(asked->verb);
        arrival.bodyIsRight = body.empty() || (has_body && isSentBody(*asked, head, body));
        arrival.head = head;
        arrival.connection = number_;
        arrival.proxy = proxy_;
        arrival.bodySize = static_cast<std::int64_t>(body.size());
        return arrival;
    }

    void answer(Link& link, const std::string& head, const std::string& body) {
        const Arrival arrival = arrivalOf(head, body);
        servers_.world_.note("server", std::to_string(host_.id) + " is asked: " + head.substr(0, head.find('\r')));
        const std::size_t number = servers_.arrive(arrival);
        const ReplyScript reply = servers_.script_.reply(arrival.exchange, number);
        const std::string location = reply.location < 0 ? std::string()
                                                        : HttpServers::url(servers_.script_, reply.locationHost,
                                                                           reply.location, arrival.request);
        send(link, reply, answerTo(head, reply, number, location));
    }

    void send(Link& link, const ReplyScript& reply, std::string bytes) {
        const bool closes = endsByClosing(reply) || bytes.find("\r\nConnection: close\r\n") != std::string::npos;
        const bool is_cut =
            reply.cut != Cut::none && reply.cutAt < static_cast<std::int64_t>(bytes.size()) && !servers_.isCalm();
        if (is_cut) bytes.resize(static_cast<std::size_t>(reply.cutAt));
        const std::size_t piece =
            reply.piece > 0 ? static_cast<std::size_t>(reply.piece) : std::max<std::size_t>(bytes.size(), 1);
        const Time first = servers_.world_.now() + Time(reply.delay);
        Time at = first;
        for (std::size_t begin = 0; begin < bytes.size(); begin += piece, at += Time(reply.gap)) {
            link.send(at, bytes.substr(begin, piece));
        }
        const Time last = std::max({first, at - Time(reply.gap), link.planned()});
        end(link, is_cut ? reply.cut : Cut::none, closes, last);
    }

    void end(Link& link, Cut cut, bool closes, Time last) {
        ++answered_;
        ended_ = true;
        if (cut == Cut::stall) return;
        if (cut == Cut::reset) return link.reset(last);
        if (cut == Cut::close || closes) return link.finish(last);
        if (host_.answers > 0 && answered_ >= host_.answers) return link.finish(last);
        ended_ = false;
        if (host_.idle > 0) planIdleEnd(link, last + Time(host_.idle));
    }

    // Where the next request comes before, it meets a closed connection at the worst moment.
    void planIdleEnd(Link& link, Time at) {
        ended_ = true;
        link.finish(at);
    }

    HttpServers& servers_;
    const HostScript host_;
    const std::int64_t number_;
    const std::int64_t proxy_;
    std::string received_;
    std::int64_t answered_ = 0;
    // Nothing is answered any more.
    bool ended_ = false;
};

namespace {

// Nobody listens at 10.0.2.x, and nobody answers at 10.0.3.x.
std::vector<std::uint32_t> addressesOf(const HostScript& host) {
    std::vector<std::uint32_t> addresses;
    const std::uint32_t dead = host.deadConnect == Connect::silent ? 0x0A000301U : 0x0A000201U;
    for (std::int64_t number = 0; number < host.deadAddresses; ++number) {
        addresses.push_back(dead + static_cast<std::uint32_t>(number));
    }
    addresses.push_back(HttpServers::ipOf(host.id));
    return addresses;
}

}  // namespace

HttpServers::HttpServers(World& world, const Script& script, Observation& observation)
    : world_(world), script_(script), observation_(observation) {
    prepareIdentities(script);
    if (script.world.calmAt > 0) calm_ = world.now() + Time(script.world.calmAt);
    constexpr std::int64_t most_hosts = 16;
    for (std::int64_t host = 0; host < most_hosts; ++host) {
        const HostScript known = script.host(host);
        const std::uint16_t port = known.tls != 0 ? 443 : 80;
        world.network.listen({ipOf(host), port}, [this, host](Link& link) { return accept(host, link); });
        NameEntry& entry = world.names["host-" + std::to_string(host)];
        entry.addresses = addressesOf(known);
        entry.delay = Time(known.nameDelay);
        if (known.nameFails != 0) entry.unknownUntil = calm_;
    }
}

std::string HttpServers::url(const Script& script, std::int64_t host, std::int64_t exchange, std::int64_t request) {
    const std::string name =
        script.host(host).named != 0 ? "host-" + std::to_string(host) : "10.0.0." + std::to_string(host + 1);
    return (script.host(host).tls != 0 ? "https://" : "http://") + name + '/' + std::to_string(exchange) + '/' +
           std::to_string(request);
}

Network::Acceptance HttpServers::accept(std::int64_t host, const Link& link) {
    HostScript known = script_.host(host);
    if (isCalm()) known.connect = Connect::accept;
    Network::Acceptance acceptance;
    acceptance.delay = known.connect == Connect::silent ? Never : Time(known.connectDelay);
    if (known.connect == Connect::refuse) acceptance.error = ECONNREFUSED;
    acceptance.peer = std::make_shared<HttpPeer>(*this, host, Proxies::at(link.to().ip));
    if (known.tls != 0) acceptance.peer = tlsPeer(world_, known, acceptance.peer, observation_);
    // libcurl 7.88 loses the failure of a handshake, and asks for the next step for ever, when what it has to say about that
    // can not leave at once. Linux interrupts no send that does not wait.
    acceptance.faults = {known.mostReceived, known.mostSent, known.interrupted, known.tls != 0};
    return acceptance;
}

void HttpServers::calm() {
    calm_ = std::min(calm_, world_.now());
    for (auto& [name, entry] : world_.names) entry.unknownUntil = Time(0);
}

std::size_t HttpServers::arrive(Arrival arrival) {
    const std::size_t number = arrivals_[{arrival.request, arrival.exchange}]++;
    observation_.arrivals.push_back(std::move(arrival));
    return number;
}

}  // namespace kel::http::simulation
