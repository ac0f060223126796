// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace kel::http {

// The servers that have ended a handshake with an alert. Some of them gave a session away that they can not resume, and end
// the handshake of whoever comes back with it, over and over: one that asks for certificates and has not told OpenSSL what
// its sessions are for does so with TLS 1.3. Nobody can tell these from others that had their reasons, and those lose
// little when no session of theirs is resumed any more.
//
// The 32 noted last are remembered, by a number made of host and port: two that happen to have the same one count as one.
//
// Engine thread.
class SessionRefusals {
 public:
    static constexpr std::size_t Remembered = 32;

    // Hears of a handshake that has failed, on the way from this URL, and why in OpenSSL's words. True when this is news.
    bool note(std::string_view url, std::string_view text);

    // Whether a request for this URL had better resume nothing.
    bool concern(std::string_view url) const;

 private:
    bool contain(std::uint64_t server) const;

    std::array<std::uint64_t, Remembered> servers{};
    std::size_t noted = 0;
};

}  // namespace kel::http
