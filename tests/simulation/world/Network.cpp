// SPDX-License-Identifier: MIT
#include "world/Network.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace kel::http::simulation {

std::string Address::text() const {
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) {
        text += std::to_string((ip >> static_cast<unsigned>(shift)) & 0xFFU) + (shift == 0 ? ":" : ".");
    }
    return text + std::to_string(port);
}

void Link::plan(Event event) {
    event.at = std::max(event.at, planned());
    wire_.push_back(std::move(event));
}

void Link::fallSilent() {
    wire_.clear();
    peer.reset();
    if (state == State::Connecting) connectedAt = Never;
}

void Link::breakNow() {
    const bool is_new = state == State::Connecting;
    fallSilent();
    arrived.clear();
    wasReset = !is_new;
    if (!is_new) return;
    state = State::Refused;
    error = ECONNRESET;
}

void Link::arrive(Time now) {
    if (state == State::Connecting && connectedAt <= now) state = error == 0 ? State::Connected : State::Refused;
    for (; state == State::Connected && !wire_.empty() && wire_.front().at <= now; wire_.pop_front()) {
        const Event& event = wire_.front();
        arrived += event.bytes;
        if (event.kind == Event::Finish) finished = true;
        if (event.kind == Event::Reset) wasReset = true;
    }
}

Time Link::nextEvent(Time now) {
    arrive(now);
    if (state == State::Connecting) return connectedAt;
    return state == State::Connected && !wire_.empty() ? wire_.front().at : Never;
}

bool Link::isReadable(Time now) {
    arrive(now);
    return state == State::Refused || !arrived.empty() || finished || wasReset;
}

bool Link::isWritable(Time now) {
    arrive(now);
    return state == State::Refused || wasReset || (state == State::Connected && (room_ != 0 || seemsWritable));
}

Link* Network::find(int descriptor) {
    const auto found = links_.find(descriptor);
    return found == links_.end() ? nullptr : found->second.get();
}

Link& Network::open(int descriptor, const Address& to) {
    ++made_;
    auto& link = links_[descriptor];
    link = std::make_unique<Link>(descriptor, to);
    return *link;
}

void Network::close(int descriptor) {
    const auto found = links_.find(descriptor);
    if (found == links_.end()) return;
    const std::unique_ptr<Link> link = std::move(found->second);
    links_.erase(found);
    if (link && link->peer) link->peer->onClose();
}

Network::Acceptance Network::acceptAt(const Address& address, Link& link) {
    Acceptance lost;
    lost.delay = Never;
    if (isCutOff && isCutOff(address)) return lost;
    const auto found = listeners_.find(address);
    if (found != listeners_.end()) return found->second(link);
    constexpr std::uint32_t silent_net = 0x0A0003;
    if (address.ip >> 8U == silent_net) return lost;
    Acceptance refused;
    refused.delay = std::chrono::milliseconds(1);
    refused.error = ECONNREFUSED;
    return refused;
}

void Network::each(const std::function<void(Link&)>& deed) {
    for (auto& [descriptor, link] : links_) {
        if (link) deed(*link);
    }
}

Time Network::nextEvent(Time now) {
    Time next = Never;
    for (auto& [descriptor, link] : links_) {
        if (link) next = std::min(next, link->nextEvent(now));
    }
    return next;
}

}  // namespace kel::http::simulation
