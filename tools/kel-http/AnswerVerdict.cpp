// SPDX-License-Identifier: MIT
#include "AnswerVerdict.h"

#include <fmt/format.h>

namespace kel::http::tool {
namespace {

AnswerVerdict verdict_on_part(const HeardTransfer& heard, const PartSizes& sizes) {
    if (heard.is_misplaced(sizes.before)) {
        return {
            TransferError,
            fmt::format("the server sent its file from byte {} on, but {} are here", *heard.range_start, sizes.before),
            true};
    }
    if (!heard.range_total) return {TransferError, "the server does not tell how large the whole file is", true};
    if (*heard.range_total == sizes.now) return {};
    // It may have sent less than was asked for; more than there is comes from another file.
    return {TransferError,
            fmt::format("the server's file has {} bytes, but {} are here", *heard.range_total, sizes.now),
            sizes.now > *heard.range_total};
}

// The server has no more than what is there already.
AnswerVerdict verdict_on_no_more(const HeardTransfer& heard, const PartSizes& sizes) {
    if (heard.range_total == sizes.before) return {};
    const std::string size = heard.range_total ? fmt::format("its file has {} bytes", *heard.range_total)
                                               : "it does not tell how large its file is";
    return {StatusError, fmt::format("the server can not go on after {} bytes (status 416): {}", sizes.before, size),
            true};
}

AnswerVerdict verdict_on_whole(int status, const HeardTransfer& heard, const PartSizes& sizes) {
    if (sizes.before > 0 && heard.length != sizes.before) {
        return {
            TransferError,
            fmt::format("the server does not go on after {} bytes, it answered with status {} and no part of a file",
                        sizes.before, status),
            true};
    }
    if (!heard.length || *heard.length == sizes.now) return {};
    return {TransferError, fmt::format("{} bytes were announced, but {} are here", *heard.length, sizes.now)};
}

}  // namespace

std::string refusal(int status) {
    return fmt::format("the server answered with status {}, nothing is saved", status);
}

AnswerVerdict verdict_on(int status, const HeardTransfer& heard, const PartSizes& sizes) {
    if (status == 206) return verdict_on_part(heard, sizes);
    if (status == 416 && sizes.before > 0) return verdict_on_no_more(heard, sizes);
    if (status >= 200 && status < 300) return verdict_on_whole(status, heard, sizes);
    return {StatusError, refusal(status)};
}

}  // namespace kel::http::tool
