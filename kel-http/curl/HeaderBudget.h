// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string_view>

namespace kel::http {

// What peers may send ahead of and behind bodies in the course of one request, through one proxy: the header blocks of
// all answers, interim ones, those of redirects and of proxies included, and trailers. Without a bound a peer could fill
// the memory, or have a request sent for ever. Engine thread.
class HeaderBudget {
 public:
    static constexpr std::uint32_t most_bytes = 256 * 1024;
    static constexpr std::uint32_t most_lines = 2000;
    // Answers that ask for credentials. One or two are usual.
    static constexpr std::uint32_t most_challenges = 10;

    // Takes what libcurl hands over: usually one line, several after a pause. Null, or why the request has to end.
    const char* take(std::string_view lines);

 private:
    const char* takeLine(std::string_view line);

    std::uint32_t bytes = 0;
    std::uint32_t header_lines = 0;
    std::uint32_t challenges = 0;
};

}  // namespace kel::http
