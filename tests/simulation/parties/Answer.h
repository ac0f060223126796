// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

#include "Script.h"

namespace kel::http::simulation {

// The bytes of an answer, as its script has it, without any cut. `location`: where it leads to.
std::string answerBytes(const ReplyScript& reply, std::size_t arrival, const std::string& location);

// What comes instead where a challenge is not met.
std::string challengeBytes(const ReplyScript& reply, std::size_t arrival);

// The same as an answer to a request with this head, which may lack credentials, or ask for a part of the body.
std::string answerTo(const std::string& head, const ReplyScript& reply, std::size_t arrival,
                     const std::string& location);

// Whether the connection is closed behind an answer because the client can not tell where that ends.
constexpr bool endsByClosing(const ReplyScript& reply) {
    return reply.lie == Lie::longer || reply.lie == Lie::two || reply.lie == Lie::garbage;
}

// The page of a refusal to send a part of a body.
constexpr std::string_view refused_part = "no such part";

// Whether HTTP has no body for this status.
constexpr bool isWithoutBody(std::int64_t status) {
    return status < 200 || status == 204 || status == 304;
}

}  // namespace kel::http::simulation
