// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace kel::http::test {

// One request as a ScriptedServer has read it.
struct ReceivedRequest {
    // The connection it came over; connections are numbered from 1 in the order of their acceptance.
    std::size_t connection = 0;

    // The three parts of the request line, as sent: "GET", "/path?query" (or an absolute URL at a proxy), "HTTP/1.1".
    std::string method;
    std::string target;
    std::string version;

    // The header lines in order, as sent, without their line ends.
    std::vector<std::string> header_lines;

    // The body without its transfer encoding.
    std::string body;

    // The value of the first header of this name (case does not matter), without surrounding blanks.
    std::optional<std::string> header(const std::string& name) const;

    // The values of all headers of this name, in order.
    std::vector<std::string> headers(const std::string& name) const;
};

}  // namespace kel::http::test
