// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "Scenario.h"

namespace kel::http::demo {
namespace {

using Json = nlohmann::json;

constexpr std::size_t many = 200;
constexpr std::size_t upload_bytes = 1048576;
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

// The server has seen just this.
std::function<std::string(const ResponseData&)> arrived_as(const Json& expected) {
    return [expected](const ResponseData& response) {
        const bool same = Json::parse(response.body, nullptr, false) == expected;
        return same ? std::string() : "the server saw " + response.body;
    };
}

Scenario echo(const OriginServer& server, Method method, const std::string& title, const std::string& body,
              const std::string& content_type) {
    Scenario row = scenario(server, method, "/echo", title);
    row.request.body = body;
    row.request.headers["Content-Type"] = content_type;
    row.sent_bytes = body.size();
    row.complaint = arrived_as({{"method", name_of(method)},
                                {"content_type", content_type},
                                {"length", body.size()},
                                {"sha256", sha256_of(body)}});
    return row;
}

Scenario file_upload(const OriginServer& server, DemoFolder& folder) {
    const std::string path = folder.make("upload.bin", upload_bytes);
    Scenario row = echo(server, Method::PUT, "from a file", content_of(path), "application/octet-stream");
    row.request.body = path;
    row.request.body_is_file = true;
    return row;
}

Scenario form(const OriginServer& server, DemoFolder& folder) {
    const std::string title = "A lake";
    const std::string path = folder.make("picture.bin", form_file_bytes);
    Scenario row = scenario(server, Method::POST, "/echo", "form with a file");
    row.request.mime_parts = {{"title", title, {}, {}}, {"picture", {}, path, "image/x-demo"}};
    row.sent_bytes = title.size() + form_file_bytes;
    const Json title_part = {
        {"file_name", ""}, {"content_type", ""}, {"length", title.size()}, {"sha256", sha256_of(title)}};
    const Json picture_part = {{"file_name", path},
                               {"content_type", "image/x-demo"},
                               {"length", form_file_bytes},
                               {"sha256", sha256_of(content_of(path))}};
    row.complaint = arrived_as({{"method", "POST"},
                                {"content_type", "multipart/form-data"},
                                {"parts", {{"title", title_part}, {"picture", picture_part}}}});
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

std::vector<Scenario> all_scenarios(const OriginServer& server, DemoFolder& folder) {
    return {echo(server, Method::GET, "plain", {}, {}),
            echo(server, Method::POST, "JSON body", R"({"lamp": "on", "level": 7})", "application/json"),
            echo(server, Method::PUT, "text body", "stored", "text/plain"),
            echo(server, Method::PATCH, "zero bytes inside", std::string("a\0b\0c", 5), "application/octet-stream"),
            echo(server, Method::DELETE, "no body", {}, {}),
            form(server, folder),
            file_upload(server, folder),
            redirects(server),
            missing(server),
            time_out(server),
            cancel(server),
            at_once(server)};
}

}  // namespace kel::http::demo
