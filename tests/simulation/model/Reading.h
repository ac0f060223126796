// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kel::http::simulation {

// An answer as HTTP has it: what a reader may know of it when these bytes, and no more, have come. Nothing here is the
// library's.
struct Reading {
    // Of the final answer; 0: its head has not come as a whole.
    int status = 0;
    // A first line has come as a whole; the status in the latest of them.
    bool hasBegun = false;
    int begun = 0;
    // All header lines in their order, those of interim answers before and trailers behind; names in lower case.
    std::vector<std::pair<std::string, std::string>> headers;
    // Bytes up to the end of the head.
    std::size_t head = 0;
    // What has come of the body, taken out of its chunks.
    std::string body;
    // -1: not announced.
    std::int64_t announced = -1;
    bool isChunked = false;
    // It says that it closes the connection.
    bool closes = false;
    // The end is known by the bytes alone.
    bool isWhole = false;
    // Bytes of the header lines.
    std::size_t lineBytes = 0;
    // It is no answer of HTTP's, or its chunks are none.
    bool isForeign = false;
    bool isMalformed = false;
    // Of its chunks only the very last byte is missing.
    bool lacksLineFeed = false;
    // Something of the trailer has come, but not its end.
    bool endsInTrailer = false;

    // Its body ends with the connection.
    bool isEndedByClose() const { return status != 0 && !isWhole && announced < 0 && !isChunked; }
    std::string header(std::string_view name) const;
};

Reading readAnswer(std::string_view bytes);

}  // namespace kel::http::simulation
