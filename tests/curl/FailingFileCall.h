// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace kel::http::test {

// While it lives, the next "write", "fsync", "close" or "rename" of a file whose name begins with "httpcookies" fails with
// an error; a close closes all the same. In programs that link the source. One at a time.
class FailingFileCall {
 public:
    FailingFileCall(const std::string& call, int error);
    ~FailingFileCall();
    FailingFileCall(const FailingFileCall&) = delete;
    FailingFileCall& operator=(const FailingFileCall&) = delete;
};

}  // namespace kel::http::test
