// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string_view>

namespace kel::http::simulation {

// The parts of a Script that tell of the network: what connections meet on their way, and what befalls all of them.

enum class Connect : std::uint8_t { accept, refuse, silent };
enum class Cut : std::uint8_t { none, close, reset, stall };
// What an answer says that is not so: a length beyond the body, or short of it; two lengths; no number in the place of a
// chunk's size; 300 KiB of header lines; 2100 short ones; no HTTP at all.
enum class Lie : std::uint8_t { none, longer, shorter, two, chunk, headers, lines, garbage };
// How a server or a proxy asks who it is.
enum class Challenge : std::uint8_t { none, basic, digest, both };
// What a server makes of a request for the rest of a file: the whole, the rest, another part of it, or a refusal.
enum class Range : std::uint8_t { ignored, right, wrong, refused };
enum class ProxyMode : std::uint8_t { off, manual, list };
enum class Login : std::uint8_t { none, basic, any, wrong };
enum class Trouble : std::uint8_t { mute, reset, noSockets, notReading, wallClock, moves };

std::string_view nameOf(Connect value);
std::string_view nameOf(Cut value);
std::string_view nameOf(Lie value);
std::string_view nameOf(Challenge value);
std::string_view nameOf(Range value);
std::string_view nameOf(ProxyMode value);
std::string_view nameOf(Login value);
std::string_view nameOf(Trouble value);

// A machine that makes tunnels: 10.0.1.(id), port 3128; id 1 to 9.
struct ProxyScript {
    std::int64_t id = 1;
    Connect connect = Connect::accept;
    std::int64_t connectDelay = 1000;
    // What CONNECT is answered, how late, with so many more header lines and so long a page (other statuses than 200).
    std::int64_t status = 200;
    std::int64_t delay = 1000;
    std::int64_t headers = 0;
    std::int64_t body = 0;
    // basic: a 407 comes first without the right credentials; behind it the connection is closed if it `closes`.
    Challenge challenge = Challenge::none;
    std::int64_t closes = 0;
    // What happens behind so many bytes of the answer to CONNECT.
    Cut cut = Cut::none;
    std::int64_t cutAt = 0;
    // The URL that callers have holds credentials: 1: the right ones, 2: wrong ones.
    std::int64_t credentials = 0;

    static constexpr std::string_view word = "proxy";
    template <typename Visitor>
    void visit(Visitor&& visitor) {
        visitor("id", id);
        visitor("connect", connect);
        visitor("connectDelay", connectDelay);
        visitor("status", status);
        visitor("delay", delay);
        visitor("headers", headers);
        visitor("body", body);
        visitor("challenge", challenge);
        visitor("closes", closes);
        visitor("cut", cut);
        visitor("cutAt", cutAt);
        visitor("credentials", credentials);
    }
};

// What befalls machines or the process, from a time on, until another one.
// mute:       connections to `host` (-1: to all) say and hear nothing any more; new ones are not answered until the end
// reset:      connections to `host` break at once
// noSockets:  no new one can be made
// notReading: `host` takes hardly a byte more on the connections that it has
// wallClock:  it jumps to `value`, seconds since 1970
// moves:      the name of `host` leads to the address of host `value` now
struct TroubleScript {
    std::int64_t at = 0;
    std::int64_t until = 0;
    Trouble kind = Trouble::mute;
    std::int64_t host = -1;
    std::int64_t value = 0;

    static constexpr std::string_view word = "trouble";
    template <typename Visitor>
    void visit(Visitor&& visitor) {
        visitor("at", at);
        visitor("until", until);
        visitor("kind", kind);
        visitor("host", host);
        visitor("value", value);
    }
};

}  // namespace kel::http::simulation
