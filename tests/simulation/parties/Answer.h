// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "Script.h"

namespace kel::http::simulation {

// The bytes of an answer, as its script has it, without any cut. `location`: where it leads to.
std::string answerBytes(const ReplyScript& reply, std::size_t arrival, const std::string& location);

// Whether HTTP has no body for this status.
constexpr bool isWithoutBody(std::int64_t status) {
    return status < 200 || status == 204 || status == 304;
}

}  // namespace kel::http::simulation
