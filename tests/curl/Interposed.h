// SPDX-License-Identifier: MIT
#pragma once

#include <curl/curl.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "support/EventLog.h"

namespace kel::http::test {

// A program that links this file has functions of its own in the place of some of the system's and of libcurl's: they
// note the calls, do what a test says, and otherwise hand over to the real ones.
//
// Life:    each object starts from the real behaviour and without notes, and ends so. One at a time.
// Threads: any.
class Interposed {
 public:
    Interposed();
    ~Interposed();
    Interposed(const Interposed&) = delete;
    Interposed& operator=(const Interposed&) = delete;

    // --- notes ---
    // "select SECONDS MICROSECONDS" before each wait, "wait MILLISECONDS" for curl_multi_wait, "eventfd_write",
    // "eventfd_read", "resolve NAME", and of what is wished for a thread "stack BYTES", "policy NUMBER" and "priority
    // NUMBER", in order.
    const EventLog& calls() const;
    std::size_t selects() const;
    // The longest sets that a select was given, in descriptors.
    int mostSelected() const;
    // The options set on easy handles, in order: "CURLOPT_NAME=value", where a pointer is "easy" (the handle itself),
    // "null" or "set", and a list of headers "one: 1|two: 2"; and those set on what handles share: "CURLSHOPT_SHARE=2".
    std::vector<std::string> options() const;
    void forgetOptions();
    // The number of each transfer's easy handle, in order; handles are counted from 1 as they are used first. And how many
    // of those are still there.
    std::vector<std::size_t> handles() const;
    std::size_t livingHandles() const;
    // What was written past all loggers.
    struct RawLine {
        int severity;
        int channel;
        std::string text;
        std::size_t length;
    };
    std::vector<RawLine> rawLines() const;

    // --- behaviour ---
    // Called on the engine thread before libcurl looks at all transfers the next time.
    void beforePerform(std::function<void()> act);
    // So many of the next selects fail with `error` at once, with all descriptors left set.
    void failSelects(int count, int error);
    // libcurl's next timer, in milliseconds; none: libcurl's own answer.
    void setTimer(std::optional<long> milliseconds);
    // From now on epoll_ctl(2) fails, as where a limit of the user's is reached.
    void failEpoll();
    // No such descriptor can be made; writing and reading it fail, though both are done all the same.
    void failEventfds();
    void failEventfdWrites(bool fail);
    void failEventfdReads(bool fail);
    // What curl_easy_getinfo() answers to `info` from now on. A text is always null.
    void answerInfo(CURLINFO info, CURLcode result, curl_off_t value);
    // The same for the list of cookies, a line each.
    void answerCookieList(const std::vector<std::string>& lines);
    // From now on this call has no memory: "curl_mime_init", or an option, "CURLOPT_COPYPOSTFIELDS".
    void fail(const std::string& call);
    // From now on libcurl does not know this option.
    void lack(CURLoption option);
    // Name look-ups wait for release; each name is then found on 127.0.0.1.
    void holdNames();
    void releaseNames();
    // Every send(2) takes so many bytes at most.
    void limitSends(std::size_t bytes);
    // The so many-th send(2) from now on takes nothing, and its connection turns out to be reset.
    void resetAtSend(int number);
};

}  // namespace kel::http::test
