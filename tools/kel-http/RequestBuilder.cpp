// SPDX-License-Identifier: MIT
#include "RequestBuilder.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <string_view>

#include "Files.h"
#include "ToolError.h"

namespace kel::http::tool {
namespace {

std::string trimmed(std::string_view text) {
    constexpr std::string_view blanks = " \t";
    const auto first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) return {};
    return std::string(text.substr(first, text.find_last_not_of(blanks) - first + 1));
}

// Values stay out of the messages: they may be secret.
void add_header(HeaderMap& headers, const std::string& line) {
    const auto colon = line.find(':');
    if (colon == std::string::npos) throw ToolError(UsageError, "a --header has no colon: write it as 'Name: value'");
    const std::string name = trimmed(std::string_view(line).substr(0, colon));
    if (headers.emplace(name, trimmed(std::string_view(line).substr(colon + 1))).second) return;
    throw ToolError(UsageError, fmt::format("--header '{}' is given twice: a request holds one of each name", name));
}

// "name=value", "name=@file", "name=@file;type=image/png"
MimePart parse_form_field(const std::string& field) {
    const auto equals = field.find('=');
    if (equals == std::string::npos || equals == 0) {
        throw ToolError(UsageError, "a --form field has no name: write it as name=value or name=@file");
    }
    MimePart part;
    part.name = field.substr(0, equals);
    part.data = field.substr(equals + 1);
    if (part.data.empty() || part.data.front() != '@') return part;

    constexpr std::string_view type_marker = ";type=";
    part.file_path = part.data.substr(1);
    part.data.clear();
    const auto type = part.file_path.rfind(type_marker);
    if (type != std::string::npos) {
        part.content_type = part.file_path.substr(type + type_marker.size());
        part.file_path.resize(type);
    }
    check_readable(part.file_path);
    return part;
}

void add_body(RequestConfig& request, const Options& options) {
    if (options.data) request.body = *options.data;
    if (options.data_file) request.body = read_file(*options.data_file);
    for (const std::string& field : options.form) request.mime_parts.push_back(parse_form_field(field));
    if (!options.upload) return;
    check_readable(*options.upload);
    // A server that asks for a login wants the body again, which is possible from memory only.
    request.body_is_file = options.user.empty();
    request.body = request.body_is_file ? *options.upload : read_file(*options.upload);
}

bool looks_like_json(const std::string& text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos || (text[first] != '{' && text[first] != '[')) return false;
    return nlohmann::json::accept(text);
}

std::string_view content_type_of(const RequestConfig& request, const Options& options) {
    if (options.upload) return "application/octet-stream";
    if (looks_like_json(request.body)) return "application/json";
    if (options.data_file) return "application/octet-stream";
    if (request.method == Method::POST) return "application/x-www-form-urlencoded";
    return "text/plain; charset=utf-8";
}

void add_content_type(RequestConfig& request, const Options& options) {
    const bool has_form = !request.mime_parts.empty();
    if (has_form) return;  // libcurl's own, which names the boundary
    const bool has_body = options.data || options.data_file || options.upload;
    // An empty value keeps libcurl from sending a type of its own for a body that is not there.
    request.headers.emplace("Content-Type", has_body ? content_type_of(request, options) : "");
}

// The library would go on without a file that can not be read, or with the device's certificate instead of this one.
std::string readable(const std::string& path) {
    check_readable(path);
    return path;
}

void add_tls(RequestConfig& request, const Options& options) {
    if (options.ca_file) request.ca_file = readable(*options.ca_file);
    if (options.ca_folder) {
        check_folder(*options.ca_folder, false);
        request.ca_dir = *options.ca_folder;
    }
    request.tls_partial_chain = options.partial_chain;
    request.tls_verify = options.verify_server;
    if (options.min_tls) request.min_tls_version = *options.min_tls;
    if (options.own_certificate) request.own_cert = readable(*options.own_certificate);
    if (options.own_key) request.own_pkey = readable(*options.own_key);
}

void add_proxies(RequestConfig& request, const Options& options) {
    if (!options.use_proxies) request.proxy = Proxy::bypass_proxy;
    // A single one is the engine's own.
    if (options.proxies.size() > 1) request.proxies.assign(options.proxies.begin(), options.proxies.end());
}

}  // namespace

RequestConfig build_request(const Options& options) {
    RequestConfig request;
    request.method = options.method;
    request.url = options.url;
    request.headers.clear();
    for (const std::string& line : options.headers) add_header(request.headers, line);
    add_body(request, options);
    add_content_type(request, options);
    request.user = options.user;
    request.password = options.password;
    request.auth_method = options.auth;
    request.caller_handles_redirects = !options.follow_redirects;
    request.timeout = options.timeout;
    if (options.size_limit) request.size_limit = *options.size_limit;
    if (options.speed_limit) request.speed_limit = *options.speed_limit;
    request.ip_version = options.ip_version;
    add_tls(request, options);
    add_proxies(request, options);
    request.cookie_jar = options.cookies;
    request.reset_state = options.reset_state;
    request.timing_data = options.timing || options.json;
    return request;
}

}  // namespace kel::http::tool
