// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

#include "ToolError.h"
#include "TransferLog.h"

namespace kel::http::tool {

// How much there is of a file.
struct PartSizes {
    std::uint64_t before;  // what an earlier run has left, from where the server was asked to go on
    std::uint64_t now;
};

// Whether an answer has made the file whole.
struct AnswerVerdict {
    ExitCode code = Success;
    std::string message;
    bool starts_anew_helps = false;  // what is there is of no use: another file, or another server
};

// What is told of an answer that brings no file.
std::string refusal(int status);

// Judges an answer that has come to its end without a failure.
AnswerVerdict verdict_on(int status, const HeardTransfer& heard, const PartSizes& sizes);

}  // namespace kel::http::tool
