// SPDX-License-Identifier: MIT
#include "parties/Configs.h"

#include <array>
#include <memory>
#include <vector>

#include "checksum/Digest.h"
#include "parties/Bytes.h"
#include "parties/HttpServer.h"
#include "parties/Proxies.h"

namespace kel::http::simulation {
namespace {

class Fingerprint final : public checksum::Digest {
 public:
    void do_update(ko::span<const unsigned char> data) override {
        value_ = fingerprint({reinterpret_cast<const char*>(data.data()), data.size()}, value_);
    }
    std::vector<unsigned char> done() override {
        std::vector<unsigned char> bytes;
        for (int shift = 56; shift >= 0; shift -= 8)
            bytes.push_back(static_cast<unsigned char>(value_ >> static_cast<unsigned>(shift)));
        value_ = fingerprint({});
        return bytes;
    }

 private:
    std::uint64_t value_ = fingerprint({});
};

std::string urlOf(const Script& script, const RequestScript& request) {
    const std::string url = HttpServers::url(script, request.host, request.exchange, request.id);
    switch (request.badUrl) {
        case 1:
            return "http://[bad/" + std::to_string(request.id);
        case 2:
            return "ftp" + url.substr(4);
        case 3:
            return url + '\0' + "more";
        case 4:
            return {};
        default:
            return url;
    }
}

bool isFromFile(const RequestScript& request, std::int64_t part) {
    return ((request.formFiles >> static_cast<unsigned>(part)) & 1) != 0;
}

std::string partFile(const RequestScript& request, std::int64_t part) {
    return "part-" + std::to_string(request.id) + '-' + std::to_string(part);
}

std::string uploadFile(const RequestScript& request) {
    return "upload-" + std::to_string(request.id);
}

void addForm(RequestConfig& config, const RequestScript& request, const Folder& folder) {
    config.headers.erase("Content-Type");
    for (std::int64_t number = 0; number < request.form; ++number) {
        MimePart part{"part-" + std::to_string(number), partBody(request.id, number), {}, {}};
        if (isFromFile(request, number)) {
            folder.put(partFile(request, number), part.data);
            part.file_path = folder.pathOf(partFile(request, number));
        }
        config.mime_parts.push_back(part);
    }
}

void addBody(RequestConfig& config, const RequestScript& request, const Folder& folder) {
    if (request.verb == Verb::POST && request.form > 0) return addForm(config, request, folder);
    if (request.verb == Verb::GET) return;
    config.body = requestBody(request.id, request.body);
    if (request.verb != Verb::PUT || request.bodyFile == 0) return;
    if (request.bodyFile == 1) folder.put(uploadFile(request), config.body);
    config.body = folder.pathOf(uploadFile(request));
    config.body_is_file = true;
}

void addHeaders(RequestConfig& config, const RequestScript& request) {
    if (request.headers == 1) config.headers["X-Own"] = "own-" + std::to_string(request.id);
    if (request.headers == 2) config.headers["Accept"] = "";
    if (request.headers == 3) config.headers["X-Bad"] = "one\r\nX-Smuggled: two";
}

}  // namespace

RequestConfig configOf(const Script& script, const RequestScript& request, const Folder& folder) {
    static constexpr std::array<Method, 5> methods = {Method::GET, Method::POST, Method::PUT, Method::PATCH,
                                                      Method::DELETE};
    RequestConfig config;
    config.url = urlOf(script, request);
    config.method = methods[static_cast<std::size_t>(request.verb)];
    addBody(config, request, folder);
    addHeaders(config, request);
    config.timeout = std::chrono::milliseconds(request.timeout);
    if (request.sizeLimit >= 0) config.size_limit = static_cast<std::uint32_t>(request.sizeLimit);
    if (request.speedLimit > 0) config.speed_limit = static_cast<std::uint32_t>(request.speedLimit);
    config.caller_handles_redirects = request.callerRedirects != 0;
    config.reset_state = request.freshState != 0;
    config.cookie_jar = static_cast<CookieJar>(request.cookies);
    config.timing_data = request.timing != 0;
    config.resume = request.download >= 3;
    config.keep_partial_download = request.keepPartial != 0;
    config.proxy = Proxy::bypass_proxy;
    addNetwork(config, script, request);
    return config;
}

std::string targetOf(const RequestScript& request) {
    return "target-" + std::to_string(request.id);
}

std::string oldTarget(const Script& script, const RequestScript& request) {
    switch (request.download) {
        case 2:
        case 4:
            return oldFile(request.id, request.present);
        case 3:
            return answerBody(request.exchange, 0, script.reply(request.exchange, 0).body)
                .substr(0, static_cast<std::size_t>(request.present));
        default:
            return {};
    }
}

std::vector<std::string> filesOf(const RequestScript& request) {
    std::vector<std::string> names;
    if (request.download >= 3 && request.own == 0) names.push_back(targetOf(request));
    if (request.bodyFile == 1) names.push_back(uploadFile(request));
    for (std::int64_t part = 0; part < request.form; ++part) {
        if (isFromFile(request, part)) names.push_back(partFile(request, part));
    }
    return names;
}

ClientOptions clientOptions(const Script& script) {
    ClientOptions options;
    if (script.world.digest != 0) options.download_digest = [] { return std::make_unique<Fingerprint>(); };
    return options;
}

}  // namespace kel::http::simulation
