// SPDX-License-Identifier: MIT

// What bench/run measures of uploads:
//
//   kel-http-bench-upload library|floor memory|file SOURCE URL   one PUT of SOURCE bytes from memory, given away with the
//                                                                record, or of the file SOURCE; tells what it has taken
//                                                                (Meter), and by how many KiB the process has grown
//                                                                meanwhile at most

#include <curl/curl.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <future>
#include <string>
#include <vector>

#include "Memory.h"
#include "Meter.h"
#include "kel-http/Client.h"
#include "kel-http/curl/Engine.h"
#include "ko/thread_executor.h"

namespace kel::http::bench {
namespace {

// Anything but a complete 200 ends the process: its cost is not the one to be measured.
[[noreturn]] void fail(const std::string& what) {
    std::fprintf(stderr, "kel-http-bench-upload: %s\n", what.c_str());
    std::abort();
}

// The body is there before anything is measured: it is the caller's.
RequestConfig recordOf(const std::string& from, const std::string& source, const std::string& url) {
    RequestConfig config;
    config.method = Method::PUT;
    config.url = url;
    config.body_is_file = from == "file";
    if (config.body_is_file) {
        config.body = source;
    } else {
        config.body.assign(std::stoul(source), 'x');
    }
    return config;
}

// What a transfer has taken so far. The peak is the highest of the process, so what came before may hide in it.
class Watch {
 public:
    void tell() const {
        const std::string figures = meter_.stop();
        std::printf("%s growth=%ld\n", figures.c_str(), peakKib() - resident_);
    }

 private:
    const long resident_ = residentKib();
    const Meter meter_;
};

void uploadWithLibrary(RequestConfig config) {
    std::promise<int> status;
    ko::thread_executor executor("BenchExecutor");
    Engine engine([](const std::function<void()>& completion) { completion(); });
    const auto client = createClient(executor, *logging::getLogger("bench", 0));
    const auto start = [&] {
        client->start_request(
            std::move(config), {},
            [&status](Client::RequestId, const ResponseData& data) { status.set_value(data.status); },
            [](Client::RequestId, const ErrorData& data) { fail(data.message); });
    };
    const Watch watch;
    executor.post(start, 0);
    if (status.get_future().get() != 200) fail("not 200");
    watch.tell();
}

std::size_t ignoreAnswer(char*, std::size_t size, std::size_t count, void*) {
    return size * count;
}

struct Source {
    const char* data = nullptr;
    std::size_t size = 0;  // of what is left
    std::FILE* file = nullptr;
};

std::size_t takeFromMemory(char* buffer, std::size_t size, std::size_t count, void* context) {
    Source& source = *static_cast<Source*>(context);
    const std::size_t bytes = std::min(size * count, source.size);
    std::memcpy(buffer, source.data, bytes);
    source.data += bytes;
    source.size -= bytes;
    return bytes;
}

Source openSource(const RequestConfig& config) {
    Source source;
    if (!config.body_is_file) {
        source.data = config.body.data();
        source.size = config.body.size();
        return source;
    }
    source.file = std::fopen(config.body.c_str(), "rb");
    if (source.file == nullptr || std::fseek(source.file, 0, SEEK_END) != 0) fail(config.body);
    source.size = static_cast<std::size_t>(std::ftell(source.file));
    std::rewind(source.file);
    return source;
}

curl_slist* headerLines() {
    curl_slist* lines = nullptr;
    for (const char* const line :
         {"Content-Type: text/xml; charset=utf-8", "User-Agent: Tervo/kel-http-default (id=noversion)",
          "Accept-Charset: ISO-8859-1,utf-8", "Expect:"}) {
        lines = curl_slist_append(lines, line);
    }
    return lines;
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

// The least that any program has to do: no thread, and no callback but the one that reads, libcurl's own for a file.
void uploadWithFloor(const RequestConfig& config) {
    curl_global_init(CURL_GLOBAL_ALL);
    CURLM* const multi = curl_multi_init();
    const Watch watch;
    Source source = openSource(config);
    CURL* const easy = curl_easy_init();
    curl_slist* const lines = headerLines();
    curl_easy_setopt(easy, CURLOPT_URL, config.url.c_str());
    curl_easy_setopt(easy, CURLOPT_FAILONERROR, 1L);
    curl_easy_setopt(easy, CURLOPT_UPLOAD, 1L);
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, lines);
    curl_easy_setopt(easy, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(source.size));
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &ignoreAnswer);
    if (source.file == nullptr) curl_easy_setopt(easy, CURLOPT_READFUNCTION, &takeFromMemory);
    curl_easy_setopt(easy, CURLOPT_READDATA,
                     source.file == nullptr ? static_cast<void*>(&source) : static_cast<void*>(source.file));
    curl_multi_add_handle(multi, easy);
    perform(multi);
    watch.tell();
    curl_multi_remove_handle(multi, easy);
    curl_easy_cleanup(easy);
    curl_slist_free_all(lines);
    if (source.file != nullptr) std::fclose(source.file);
    curl_multi_cleanup(multi);
    curl_global_cleanup();
}

}  // namespace
}  // namespace kel::http::bench

int main(int count, char** words) {
    using namespace kel::http::bench;
    const std::vector<std::string> arguments(words + 1, words + count);
    if (arguments.size() == 4 && arguments[0] == "library") {
        uploadWithLibrary(recordOf(arguments[1], arguments[2], arguments[3]));
    } else if (arguments.size() == 4 && arguments[0] == "floor") {
        uploadWithFloor(recordOf(arguments[1], arguments[2], arguments[3]));
    } else {
        std::fputs("usage: kel-http-bench-upload library|floor memory|file SOURCE URL\n", stderr);
        return 2;
    }
}
