// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "Scenario.h"

namespace kel::http::demo {
namespace {

using Json = nlohmann::json;

constexpr std::size_t many = 200;
constexpr std::size_t upload_bytes = 1024 * 1024;
constexpr std::size_t form_file_bytes = 10000;

Scenario scenario(const OriginServer& server, Method method, const std::string& path, const std::string& title) {
    Scenario row;
    row.title = title;
    row.path = path;
    row.request.method = method;
    row.request.url = server.url(path);
    row.request.headers.erase("Content-Type");
    row.request.timing_data = true;
    return row;
}

// The server has seen the same method and bytes that were sent, and their type where one was given.
std::function<std::string(const ResponseData&)> arrived_whole(Method method, const std::string& sent,
                                                              const std::string& content_type) {
    return [=, expected_hash = sha256_of(sent)](const ResponseData& response) -> std::string {
        const Json arrived = Json::parse(response.body, nullptr, false);
        if (arrived.is_discarded()) return "the echo is no JSON";
        if (arrived.value("method", "") != name_of(method)) return "the server saw another method";
        if (arrived.value("sha256", "") != expected_hash) return "the server saw another body";
        if (!content_type.empty() && arrived.value("content_type", "") != content_type) {
            return "the server saw another content type";
        }
        return {};
    };
}

Scenario echo(const OriginServer& server, Method method, const std::string& title, const std::string& body,
              const std::string& content_type) {
    Scenario row = scenario(server, method, "/echo", title);
    row.request.body = body;
    if (!content_type.empty()) row.request.headers["Content-Type"] = content_type;
    row.sent_bytes = body.size();
    row.complaint = arrived_whole(method, body, content_type);
    return row;
}

Scenario file_upload(const OriginServer& server, SentFiles& files) {
    Scenario row = scenario(server, Method::PUT, "/echo", "from a file");
    row.request.headers["Content-Type"] = "application/octet-stream";
    row.request.body = files.make("upload.bin", upload_bytes);
    row.request.body_is_file = true;
    row.sent_bytes = upload_bytes;
    row.complaint = arrived_whole(Method::PUT, content_of(row.request.body), "application/octet-stream");
    return row;
}

Scenario form(const OriginServer& server, SentFiles& files) {
    const std::string path = files.make("picture.bin", form_file_bytes);
    Scenario row = scenario(server, Method::POST, "/echo", "form with a file");
    row.request.mime_parts = {{"title", "A lake", {}, {}}, {"picture", {}, path, "image/x-demo"}};
    row.sent_bytes = std::string("A lake").size() + form_file_bytes;
    row.complaint = [title = sha256_of("A lake"), picture = sha256_of(content_of(path))](const ResponseData& response) {
        const Json arrived = Json::parse(response.body, nullptr, false);
        const Json parts = arrived.is_object() ? arrived.value("parts", Json::object()) : Json::object();
        const bool whole = parts.size() == 2 && parts.value("/title/sha256"_json_pointer, "") == title &&
                           parts.value("/picture/sha256"_json_pointer, "") == picture &&
                           parts.value("/picture/content_type"_json_pointer, "") == "image/x-demo";
        return std::string(whole ? "" : "the server saw another form");
    };
    return row;
}

Scenario redirects(const OriginServer& server) {
    Scenario row = scenario(server, Method::GET, "/redirect/3", "3 redirects");
    row.complaint = [target = server.url("/redirect/0")](const ResponseData& response) {
        const bool followed = response.body == "arrived" && response.redirect_url == target;
        return std::string(followed ? "" : "the last redirect was not reached");
    };
    return row;
}

Scenario missing(const OriginServer& server) {
    Scenario row = scenario(server, Method::GET, "/missing", "not there");
    row.expected_outcome = "404";
    return row;
}

Scenario time_out(const OriginServer& server) {
    Scenario row = scenario(server, Method::GET, "/stall", "time-out of 250 ms");
    row.request.timeout = std::chrono::milliseconds(250);
    row.expected_outcome = "Timeout";
    return row;
}

Scenario cancel(const OriginServer& server) {
    Scenario row = scenario(server, Method::GET, "/stall", "cancelled on its way");
    row.cancel_when_stalled = true;
    row.expected_outcome = "cancelled";
    return row;
}

Scenario at_once(const OriginServer& server) {
    Scenario row = echo(server, Method::GET, fmt::format("{} at once", many), {}, {});
    row.times = many;
    return row;
}

}  // namespace

std::vector<Scenario> all_scenarios(const OriginServer& server, SentFiles& files) {
    return {echo(server, Method::GET, "plain", {}, {}),
            echo(server, Method::POST, "JSON body", R"({"lamp": "on", "level": 7})", "application/json"),
            echo(server, Method::PUT, "text body", "stored", "text/plain"),
            echo(server, Method::PATCH, "zero bytes inside", std::string("a\0b\0c", 5), "application/octet-stream"),
            echo(server, Method::DELETE, "no body", {}, {}),
            form(server, files),
            file_upload(server, files),
            redirects(server),
            missing(server),
            time_out(server),
            cancel(server),
            at_once(server)};
}

}  // namespace kel::http::demo
