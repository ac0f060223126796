// SPDX-License-Identifier: MIT

// What bench/run measures of downloads:
//
//   kel-http-bench-download library|floor URL PATH   one GET whose body goes to the file PATH, by way of a sibling of
//                                                    it; tells what it has taken (Meter), and the highest
//                                                    resident memory so far, in KiB

#include <curl/curl.h>

#include <cstdio>
#include <cstdlib>
#include <future>
#include <string>

#include "Memory.h"
#include "Meter.h"
#include "kel-http/Client.h"
#include "kel-http/curl/Engine.h"
#include "ko/thread_executor.h"

namespace kel::http::bench {
namespace {

// Anything but a complete 200 ends the process: its cost is not the one to be measured.
[[noreturn]] void fail(const std::string& what) {
    std::fprintf(stderr, "kel-http-bench-download: %s\n", what.c_str());
    std::abort();
}

void tell(const Meter& meter) {
    const std::string figures = meter.stop();
    std::printf("%s peak=%ld\n", figures.c_str(), peakKib());
}

// The public client on a thread of its own, as in the other bench.
void downloadWithLibrary(const std::string& url, const std::string& path) {
    std::promise<int> status;
    ko::thread_executor executor("BenchExecutor");
    Engine engine([](const std::function<void()>& completion) { completion(); });
    const auto client = createClient(executor, *logging::getLogger("bench", 0));
    RequestConfig config;
    config.url = url;
    const auto start = [&] {
        client->start_download(
            config, path, {}, [&status](Client::RequestId, const ResponseData& data) { status.set_value(data.status); },
            [](Client::RequestId, const ErrorData& data) { fail(data.message); },
            [](Client::RequestId, const ProgressData&) {});
    };
    const Meter meter;
    executor.post(start, 0);
    if (status.get_future().get() != 200) fail("not 200");
    tell(meter);
}

void perform(CURLM* multi) {
    int running = 1;
    while (running > 0) {
        if (curl_multi_perform(multi, &running) != CURLM_OK) fail("curl_multi_perform");
        if (running > 0) curl_multi_poll(multi, nullptr, 0, 30000, nullptr);
    }
    int remaining = 0;
    const CURLMsg* const message = curl_multi_info_read(multi, &remaining);
    if (message == nullptr || message->data.result != CURLE_OK) fail("the transfer failed");
}

// The least that any program has to do: no thread, no callback but libcurl's own, which is fwrite(3).
void downloadWithFloor(const std::string& url, const std::string& path) {
    curl_global_init(CURL_GLOBAL_ALL);
    CURLM* const multi = curl_multi_init();
    const Meter meter;
    const std::string sibling = path + ".downloading";
    std::FILE* const file = std::fopen(sibling.c_str(), "wb");
    if (file == nullptr) fail(sibling);
    CURL* const easy = curl_easy_init();
    curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy, CURLOPT_FAILONERROR, 1L);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, file);
    curl_multi_add_handle(multi, easy);
    perform(multi);
    if (std::fclose(file) != 0 || std::rename(sibling.c_str(), path.c_str()) != 0) fail(path);
    tell(meter);
    curl_multi_remove_handle(multi, easy);
    curl_easy_cleanup(easy);
    curl_multi_cleanup(multi);
    curl_global_cleanup();
}

}  // namespace
}  // namespace kel::http::bench

int main(int count, char** words) {
    const std::string kind = count == 4 ? words[1] : "";
    if (kind == "library") {
        kel::http::bench::downloadWithLibrary(words[2], words[3]);
    } else if (kind == "floor") {
        kel::http::bench::downloadWithFloor(words[2], words[3]);
    } else {
        std::fputs("usage: kel-http-bench-download library|floor URL PATH\n", stderr);
        return 2;
    }
}
