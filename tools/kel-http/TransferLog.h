// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "TlsAdvice.h"
#include "ko/mutex.h"
#include "ko/thread_annotations.h"

namespace kel::http::tool {

// What the engine's log says about one transfer.
struct HeardTransfer {
    ConnectionTrouble trouble;

    // The last answer of the server; interim ones and those of a proxy on the way to it do not count. 0: none so far.
    int status = 0;
    // The length of its body, as announced.
    std::optional<std::uint64_t> length;
    // Where a part (206) begins, and the size of the whole file, as the Content-Range of a part or of no part (416) has
    // them.
    std::optional<std::uint64_t> range_start;
    std::optional<std::uint64_t> range_total;

    bool is_chunked = false;
    bool tunnel_is_asked_for = false;  // a proxy's answer comes next

    bool is_success() const { return status >= 200 && status < 300; }
    bool is_known() const { return status != 0; }
    // A part that was not asked for by one who has `size` bytes already.
    bool is_misplaced(std::uint64_t size) const { return status == 206 && range_start && *range_start != size; }
    // The size of the file that a successful answer brings.
    std::optional<std::uint64_t> total() const { return range_total ? range_total : length; }
};

// Hears the engine's log and keeps, for each request, what its outcome leaves out: of headers the client keeps the
// first one of all answers, of failures it tells no status, and of an answer that is still coming nothing at all.
//
// Threads: any.
class TransferLog {
 public:
    // A line of the logger "HttpClient", up to its headers (level 4).
    void hear(std::string_view line) KO_EXCLUDES(mutex_);

    // The engine numbers requests from 1, in the order in which they are started.
    HeardTransfer about(unsigned int request) const KO_EXCLUDES(mutex_);

 private:
    mutable ko::mutex mutex_{"TransferLogMutex"};
    std::map<unsigned int, HeardTransfer> transfers_ KO_GUARDED_BY(mutex_);
    std::string device_line_ KO_GUARDED_BY(mutex_);  // it does not say which request it is about
};

}  // namespace kel::http::tool
