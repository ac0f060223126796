// SPDX-License-Identifier: MIT
#include "NginxConfiguration.h"

#include <set>

namespace kel::http::test {

namespace {

// @name@ is filled in.
constexpr const char* Template = R"(
daemon off;
worker_processes 1;
user root;
pid @directory@/nginx.pid;
error_log @directory@/error.log;

events {
    worker_connections 8192;
}

http {
    log_format line '$connection $request_method $request_uri $status';
    access_log @directory@/access.log line;

    client_body_temp_path @directory@/posted;
    proxy_temp_path @directory@/proxy_temp;
    fastcgi_temp_path @directory@/fastcgi_temp;
    scgi_temp_path @directory@/scgi_temp;
    uwsgi_temp_path @directory@/uwsgi_temp;

    client_max_body_size 0;
    keepalive_requests 100000;
    keepalive_timeout 600s;
    client_header_timeout 600s;
    client_body_timeout 600s;
    sendfile on;
    server_tokens off;
    types { text/plain txt; text/html html; application/json json; }
    default_type application/octet-stream;

    map $arg_rate $rate { "" 100k; default $arg_rate; }

    server {
        listen @authority@ backlog=8192;
        @tls@
        root @directory@/served;
        @directives@

        location = /ready { access_log off; return 200 "ready"; }
        location /limit/ { alias @directory@/served/; limit_rate $rate; }
        location /gzip/ { alias @directory@/served/; gzip on; gzip_min_length 1; gzip_types *; }
        location /auth/ { auth_basic "kel"; auth_basic_user_file @directory@/passwords; }

        location /put/ { client_body_temp_path @directory@/put_temp; dav_methods PUT DELETE; create_full_put_path on; }

        # nginx reads a body only for somebody else: here the server below, which gets the name of the body's file.
        location = /post { @keep_body@ proxy_pass http://unix:@directory@/inner.sock:/received; }
        location = /echo { @keep_body@ proxy_pass http://unix:@directory@/inner.sock:/body; }

        location = /headers {
            add_header Set-Cookie "first=1; Path=/";
            add_header Set-Cookie "second=2; HttpOnly";
            add_header Location "/elsewhere";
            add_header X-Empty "\t";
            add_header X-Colons "a:b: c";
            return 200 "headers";
        }
@redirects@@statuses@
    }

    server {
        listen unix:@directory@/inner.sock;
        access_log off;
        location = /received { return 200 "received"; }
        location = /body { alias $http_x_body_file; }
    }
}
)";

constexpr const char* KeepBody =
    "client_body_in_file_only on; proxy_method GET; proxy_pass_request_body off; proxy_set_header Content-Length \"\"; "
    "proxy_set_header X-Body-File $request_body_file; proxy_set_header Range \"\";";

std::string tlsDirectives(const NginxSettings& settings) {
    if (settings.tls_authority.empty()) return {};
    return "listen " + settings.tls_authority + (settings.http2 ? " ssl http2" : " ssl") + " backlog=8192;\n" +
           "        ssl_certificate " + settings.certificate_file + ";\n" +  //
           "        ssl_certificate_key " + settings.key_file + ";";
}

std::string redirects() {
    std::string text = "        location = /redirect/0 { return 200 \"arrived\"; }\n";
    for (int left = 1; left <= 64; ++left) {
        text += "        location = /redirect/" + std::to_string(left) + " { return 302 /redirect/" +
                std::to_string(left - 1) + "; }\n";
    }
    return text;
}

std::string status(int code) {
    static const std::set<int> redirecting{301, 302, 303, 307, 308};
    const std::string number = std::to_string(code);
    std::string reply = "return " + number;
    if (redirecting.count(code) != 0) {
        reply += " /redirect/0";
    } else if (code != 204 && code != 304) {
        reply += " \"status " + number + '"';
    }
    std::string question;
    if (code == 401) question = "add_header WWW-Authenticate 'Basic realm=\"kel\"' always; ";
    if (code == 407) question = "add_header Proxy-Authenticate 'Basic realm=\"kel\"' always; ";
    return "        location = /status/" + number + " { " + question + reply + "; }\n";
}

std::string statuses() {
    std::string text;
    for (const int code : {200, 201, 202, 204, 206, 301, 302, 303, 304, 307, 308, 400, 401, 403, 404,
                           405, 407, 408, 409, 410, 412, 413, 416, 429, 500, 501, 502, 503, 504}) {
        text += status(code);
    }
    return text;
}

void fillIn(std::string& text, const std::string& name, const std::string& value) {
    const std::string placeholder = '@' + name + '@';
    for (std::size_t at = text.find(placeholder); at != std::string::npos; at = text.find(placeholder, at)) {
        text.replace(at, placeholder.size(), value);
        at += value.size();
    }
}

}  // namespace

std::string nginxConfiguration(const NginxSettings& settings) {
    std::string text = Template;
    fillIn(text, "keep_body", KeepBody);
    fillIn(text, "redirects", redirects());
    fillIn(text, "statuses", statuses());
    fillIn(text, "tls", tlsDirectives(settings));
    fillIn(text, "directives", settings.directives);
    fillIn(text, "authority", settings.authority);
    fillIn(text, "directory", settings.directory);
    return text;
}

}  // namespace kel::http::test
