// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>

#include "ko/executor.h"

namespace kel::http::bench {

// Is told of each answer, on the executor's thread.
class Recipient {
 public:
    virtual void onAnswer(int status, const std::string& body) = 0;

 protected:
    Recipient() = default;
    Recipient(const Recipient&) = default;
    Recipient& operator=(const Recipient&) = default;
    ~Recipient() = default;
};

// Sends requests on a thread of its own and has the answers delivered on the executor's.
//
// Life: made and destroyed on the main thread, after its executor; no request may be on its way when it goes.
class Loop {
 public:
    Loop() = default;
    Loop(const Loop&) = delete;
    Loop& operator=(const Loop&) = delete;
    virtual ~Loop() = default;

    // Starts one GET request. The executor's thread. A transfer that fails ends the process.
    virtual void get(const std::string& url) = 0;
};

// What is measured: the library's public client. An empty `ca_file` is the platform's bundle, here and below.
std::unique_ptr<Loop> makeLibraryLoop(ko::executor& executor, Recipient& recipient, const std::string& ca_file);

// What it is measured against: libcurl, driven in the same way, with nothing around it.
std::unique_ptr<Loop> makeFloorLoop(ko::executor& executor, Recipient& recipient, const std::string& ca_file);

}  // namespace kel::http::bench
