// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <limits>
#include <memory>
#include <string>

#include "DemoFolder.h"
#include "EventLoop.h"
#include "OriginServer.h"
#include "kel-http/Client.h"

namespace kel::http::demo {

// Downloads the server's image in one go, then in two parts, and tells about it on standard output.
class Downloads {
 public:
    Downloads(EventLoop& loop, const OriginServer& server, const DemoFolder& folder);

    // True: everything was as expected.
    //
    // Errors: as EventLoop::run_until.
    bool run();

 private:
    struct Outcome {
        std::string name;      // the status, the failure's name, "interrupted"
        std::string checksum;  // of the response
    };

    std::string download_whole();
    void download_a_part();
    void download_the_rest();
    RequestConfig request(bool resume, std::uint32_t speed_limit) const;
    // Cancels the download when `most_bytes` have come.
    Outcome download(const std::string& file, const RequestConfig& request,
                     std::uint64_t most_bytes = std::numeric_limits<std::uint64_t>::max());
    void compare_checksums(const std::string& of_response);

    std::uint64_t size_of(const std::string& file) const;
    void tell(const std::string& what, bool as_expected);

    EventLoop& loop_;
    const OriginServer& server_;
    const DemoFolder& folder_;
    const std::shared_ptr<Client> client_;
    bool as_expected_ = true;
};

}  // namespace kel::http::demo
