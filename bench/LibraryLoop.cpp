// SPDX-License-Identifier: MIT
#include <cstdio>
#include <cstdlib>

#include "Loop.h"
#include "kel-http/Client.h"
#include "kel-http/curl/Engine.h"

namespace kel::http::bench {
namespace {

class LibraryLoop final : public Loop {
 public:
    LibraryLoop(ko::executor& executor, Recipient& recipient, const std::string& ca_file)
        : recipient_(recipient), client_(createClient(executor, *logging::getLogger("bench", 0))) {
        if (!ca_file.empty()) config_.ca_file = ca_file;
    }

    // The configuration is the caller's own work, and may be used again; the client copies it for each request.
    void get(const std::string& url) override {
        config_.url = url;
        client_->start_request(
            config_, {},
            [this](Client::RequestId, const ResponseData& data) { recipient_.onAnswer(data.status, data.body); },
            [](Client::RequestId, const ErrorData& data) {
                std::fprintf(stderr, "kel-http-bench: %s\n", data.message.c_str());
                std::abort();
            });
    }

 private:
    Engine engine_{[](const std::function<void()>& completion) { completion(); }};
    Recipient& recipient_;
    RequestConfig config_;
    const std::shared_ptr<Client> client_;
};

}  // namespace

std::unique_ptr<Loop> makeLibraryLoop(ko::executor& executor, Recipient& recipient, const std::string& ca_file) {
    return std::make_unique<LibraryLoop>(executor, recipient, ca_file);
}

}  // namespace kel::http::bench
