// SPDX-License-Identifier: MIT
#pragma once

#include <curl/curl.h>

#include <chrono>

namespace kel::http {

// How many connections libcurl keeps for later transfers: sixteen idle ones beside those in use. Left to itself it keeps
// four for each transfer in progress, hardly any for a program that sends one request after the other.
//
// Its limit (`CURLMOPT_MAXCONNECTS`) counts those in use as well, so it follows the number of transfers, some of which may
// share a connection: upwards at once, downwards after a second or two. A program that always has many requests begins the
// next ones a moment after the last ones have ended, and wants their connections.
//
// libcurl looks at its limit when a transfer is about to end, whose own connection comes on top, and closes one idle
// connection at most.
//
// Engine thread.
class IdleConnections {
 public:
    using Clock = std::chrono::steady_clock::time_point (*)();

    explicit IdleConnections(CURLM* of_multi, Clock of_transfers = &std::chrono::steady_clock::now);

    // Called before a transfer begins and before it is taken away.
    void attach();
    void detach();

    // The number of connections that libcurl is to keep, idle ones and others.
    long limit() const;

 private:
    void follow();

    CURLM* const multi;
    const Clock clock;
    long attached = 0;
    // The most transfers that there were at once in the present second, which began then, and in the one before.
    std::chrono::steady_clock::time_point begin;
    long peak = 0;
    long lastPeak = 0;
};

}  // namespace kel::http
