// SPDX-License-Identifier: MIT
#include "parties/Troubles.h"

#include <algorithm>
#include <utility>

#include "parties/HttpServer.h"

namespace kel::http::simulation {
namespace {

// What is taken though nobody reads it, by buffers of the system: a handshake, but no upload.
constexpr std::int64_t system_buffer = 2000;

bool isMeant(const TroubleScript& trouble, const Address& address) {
    return trouble.host < 0 || address.ip == HttpServers::ipOf(trouble.host);
}

}  // namespace

Troubles::Troubles(World& world, const Script& script) : world_(world), script_(script), beginning_(world.now()) {
    if (script.troubles.empty()) return;
    for (const TroubleScript& trouble : script.troubles) plan(trouble);
    std::stable_sort(plan_.begin(), plan_.end(), [](const Step& one, const Step& other) { return one.at < other.at; });
    world.network.isCutOff = [this](const Address& address) { return isCutOff(address); };
    world.add({"trouble", [this] { return !plan_.empty() && plan_.front().at <= world_.now(); },
               [this] { return plan_.empty() ? Never : plan_.front().at; },
               [this] {
                   const Step step = std::move(plan_.front());
                   plan_.pop_front();
                   step.act();
               }});
}

void Troubles::plan(std::int64_t at, std::function<void()> act) {
    plan_.push_back({beginning_ + Time(at), std::move(act)});
}

void Troubles::plan(const TroubleScript& trouble) {
    plan(trouble.at, [this, &trouble] { begin(trouble); });
    const bool lasts = trouble.kind == Trouble::noSockets || trouble.kind == Trouble::notReading;
    if (lasts) plan(std::max(trouble.at, trouble.until), [this, &trouble] { end(trouble); });
}

void Troubles::begin(const TroubleScript& trouble) {
    world_.note("trouble", std::string(nameOf(trouble.kind)) + ' ' + std::to_string(trouble.host));
    switch (trouble.kind) {
        case Trouble::mute:
            return eachLinkTo(trouble.host, [](Link& link) { link.fallSilent(); });
        case Trouble::reset:
            return eachLinkTo(trouble.host, [](Link& link) { link.breakNow(); });
        case Trouble::noSockets:
            world_.socketsLeft = 0;
            return;
        case Trouble::notReading:
            return eachLinkTo(trouble.host, [](Link& link) { link.take(system_buffer); });
        case Trouble::wallClock:
            return world_.setWallClock(trouble.value * 1'000'000);
        case Trouble::moves:
            world_.names["host-" + std::to_string(trouble.host)].addresses = {HttpServers::ipOf(trouble.value)};
            return;
    }
}

void Troubles::end(const TroubleScript& trouble) {
    world_.note("trouble", std::string(nameOf(trouble.kind)) + " ends");
    if (trouble.kind == Trouble::noSockets) world_.socketsLeft = -1;
    if (trouble.kind == Trouble::notReading) eachLinkTo(trouble.host, [](Link& link) { link.take(-1); });
}

void Troubles::end() {
    for (; !plan_.empty(); plan_.pop_front()) {
    }
    world_.socketsLeft = -1;
    world_.network.isCutOff = nullptr;
}

void Troubles::eachLinkTo(std::int64_t host, const std::function<void(Link&)>& deed) {
    TroubleScript meant;
    meant.host = host;
    world_.network.each([&meant, &deed](Link& link) {
        if (isMeant(meant, link.to())) deed(link);
    });
}

bool Troubles::isCutOff(const Address& address) const {
    return std::any_of(script_.troubles.begin(), script_.troubles.end(), [&](const TroubleScript& trouble) {
        const Time now = world_.now() - beginning_;
        return trouble.kind == Trouble::mute && isMeant(trouble, address) && Time(trouble.at) <= now &&
               now < Time(trouble.until);
    });
}

}  // namespace kel::http::simulation
