// SPDX-License-Identifier: MIT
#include "CommandLine.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <memory>

#include "Choice.h"
#include "CookieOptions.h"
#include "DownloadOptions.h"
#include "Files.h"
#include "HelpPage.h"
#include "ProxyOptions.h"
#include "TlsOptions.h"
#include "ToolError.h"
#include "Units.h"

namespace kel::http::tool {
namespace {

constexpr const char* password_variable = "KEL_HTTP_PASSWORD";

void add_ip_options(CLI::App& app, Options& options, const char* group) {
    app.add_flag_callback(
           "-4,--ipv4", [&options] { options.ip_version = IPVersion::IPv4; }, "use IPv4 only")
        ->group(group);
    app.add_flag_callback(
           "-6,--ipv6", [&options] { options.ip_version = IPVersion::IPv6; }, "use IPv6 only")
        ->group(group);
}

CLI::App& add_command(CLI::App& app, Options& options, const char* name, const char* description) {
    CLI::App* const command = app.add_subcommand(name, description)->group("Commands");
    command->set_help_flag();  // there is one help page, that of the program
    command->fallthrough();
    add_ip_options(*command, options, "");  // again, unseen: a digit is no option that falls through
    return *command;
}

void add_commands(CLI::App& app, Options& options, std::vector<std::string>& download_words) {
    const auto add = [&app, &options](const char* name, Method method, const char* description) {
        CLI::App& command = add_command(app, options, name, description);
        command.add_option("URL", options.url)->required();
        command.callback([&options, method] { options.method = method; });
    };
    add("get", Method::GET, "fetch URL");
    add("post", Method::POST, "send data or a form to URL");
    add("put", Method::PUT, "store data or a file at URL");
    add("patch", Method::PATCH, "change what is at URL");
    add("delete", Method::DELETE, "remove what is at URL");
    add_command(app, options, "download", "fetch URL to the file PATH, whole or not at all")
        .add_option("URL", download_words)
        ->required();
    app.require_subcommand(1);
}

void add_request_options(CLI::App& app, Options& options) {
    constexpr const char* group = "Request";
    app.add_option("-H,--header", options.headers, "send this header (once for each header)")
        ->option_text("'NAME: VALUE'")
        ->allow_extra_args(false)
        ->group(group);
    app.add_option("-d,--data", options.data, "send this text (all commands but get)")
        ->option_text("TEXT")
        ->group(group);
    app.add_option("--data-file", options.data_file, "send the content of a file; - is standard input")
        ->option_text("FILE")
        ->group(group);
    app.add_option("--upload", options.upload, "send a file while it is read (put)")->option_text("FILE")->group(group);
    app.add_option("-F,--form", options.form, "add a field to a multipart form (post); @FILE sends a file")
        ->option_text("NAME=VALUE | 'NAME=@FILE[;type=TYPE]'")
        ->allow_extra_args(false)
        ->group(group);
}

void add_login_options(CLI::App& app, Options& options) {
    constexpr const char* group = "Login";
    app.add_option("-u,--user", options.user, "user name, sent when the server asks for it")
        ->option_text("NAME")
        ->group(group);
    app.add_option("--password", options.password, fmt::format("password; better kept in ${}", password_variable))
        ->option_text("TEXT")
        ->group(group);
    add_choice<AuthMethod>(app, "--auth", options.auth, {{"basic", AuthMethod::BASIC}, {"any", AuthMethod::ANY}},
                           "basic, or any: the safest the server offers (default)")
        ->group(group);
}

void add_bytes_option(CLI::App& app, const char* name, std::optional<std::uint32_t>& value, std::uint32_t least,
                      const char* description) {
    app.add_option_function<std::string>(
           name,
           [name, &value, least](const std::string& text) {
               value = parse_bytes(text);
               if (value && *value >= least) return;
               usage_error(fmt::format("{} '{}' is no number of bytes: give {} to 4294967295, such as 500, 64K or 1.5M",
                                       name, text, least));
           },
           description)
        ->option_text("BYTES")
        ->group("Connection");
}

void add_connection_options(CLI::App& app, Options& options) {
    constexpr const char* group = "Connection";
    app.add_option_function<std::string>(
           "--timeout",
           [&options](const std::string& text) {
               const auto timeout = parse_duration(text);
               if (!timeout) {
                   usage_error(fmt::format("--timeout '{}' is no duration: give one such as 500ms, 2s or 1m", text));
               }
               options.timeout = *timeout;
           },
           "longest time for all of it: 500ms, 2s, 1m; 0 for none")
        ->option_text("DURATION")
        ->group(group);
    add_bytes_option(app, "--size-limit", options.size_limit, 0, "largest body to accept: 500, 64K, 1.5M");
    add_bytes_option(app, "--limit-rate", options.speed_limit, 1, "receive no faster than this each second");
    app.add_flag("!--no-redirects", options.follow_redirects, "print a redirect instead of following it")->group(group);
    auto* const ipv4 = app.add_flag_callback(
                              "-4", [&options] { options.ip_version = IPVersion::IPv4; }, "use IPv4 only")
                           ->group(group);
    app.add_flag_callback(
           "-6", [&options] { options.ip_version = IPVersion::IPv6; }, "use IPv6 only")
        ->group(group)
        ->excludes(ipv4);
}

void add_output_options(CLI::App& app, Options& options) {
    constexpr const char* group = "Output";
    app.add_option("-o,--output", options.output, "write the body to a file, whatever the status")
        ->option_text("FILE")
        ->group(group);
    app.add_flag("-i,--include", options.include_headers, "print status and headers before the body")->group(group);
    app.add_flag("--timing", options.timing, "show where the time went (on standard error)")->group(group);
    app.add_flag("--json", options.json, "print one JSON object that tells all")->group(group);
    app.add_flag("-v,--verbose", options.verbosity, "log: -v requests, -vv steps, -vvv details, -vvvv payload")
        ->group(group);
}

bool has_any_body(const Options& options) {
    return options.data || options.data_file || options.upload || !options.form.empty();
}

int bodies_in(const Options& options) {
    return int{options.data.has_value()} + int{options.data_file.has_value()} + int{options.upload.has_value()} +
           int{!options.form.empty()};
}

void check_body(const Options& options) {
    if (options.method == Method::GET && has_any_body(options))
        usage_error("get sends no body: use post, put or patch");
    if (options.upload && options.method != Method::PUT) usage_error("--upload goes with put; use --data-file here");
    if (!options.form.empty() && options.method != Method::POST) usage_error("-F/--form goes with post only");
    if (bodies_in(options) > 1) usage_error("give only one of --data, --data-file, --upload and --form");
    if (options.upload && *options.upload == "-")
        usage_error("--upload takes a file; for standard input use --data-file -");
}

// The name is not told: a password may stand behind the colon.
void check_login(const CLI::App& app, Options& options) {
    const bool has_password = app.count("--password") > 0;
    if (app.count("--user") == 0 || options.user.empty()) {
        if (has_password || app.count("--auth") > 0 || app.count("--user") > 0) {
            usage_error("a login needs a name: give it with -u/--user");
        }
        return;
    }
    if (options.user.find(':') != std::string::npos) {
        usage_error("a user name holds no colon: give the password with --password");
    }
    const char* const stored = std::getenv(password_variable);
    if (!has_password && stored != nullptr) options.password = stored;
}

void check(const CLI::App& app, Options& options, const std::vector<std::string>& download_words) {
    check_download_options(app, options, download_words);
    if (options.url.empty() && options.download.targets.empty()) usage_error("the URL is empty");
    if (options.output && options.output->empty()) usage_error("-o/--output needs the name of a file");
    check_body(options);
    check_login(app, options);
    check_tls_options(options);
    check_proxy_options(app, options);
    check_cookie_options(options);
}

void parse(CLI::App& app, const std::vector<std::string>& words) {
    std::vector<const char*> pointers;
    for (const std::string& word : words) pointers.push_back(word.c_str());
    app.parse(static_cast<int>(pointers.size()), pointers.data());
}

}  // namespace

std::optional<Options> parse_command_line(int argc, const char* const* argv) {
    Options options;
    std::vector<std::string> download_words;
    CLI::App app("Sends one HTTP request and prints the answer, or downloads files.", "kel-http");
    app.formatter(std::make_shared<HelpPage>());
    add_commands(app, options, download_words);
    add_request_options(app, options);
    add_login_options(app, options);
    add_connection_options(app, options);
    add_tls_options(app, options);
    add_proxy_options(app, options);
    add_cookie_options(app, options);
    add_output_options(app, options);
    add_download_options(app, options);
    app.set_help_flag("-h,--help", "print this page")->group("Help");
    app.set_version_flag("--version", "kel-http " KEL_HTTP_VERSION, "print the version")->group("Help");
    try {
        parse(app, with_joined_checksum({argv, argv + argc}));
    } catch (const CLI::CallForHelp&) {
        write_to_stdout(app.get_formatter()->make_help(&app, {}, CLI::AppFormatMode::Normal));
        return std::nullopt;
    } catch (const CLI::CallForVersion& version) {
        write_to_stdout(fmt::format("{}\n", version.what()));
        return std::nullopt;
    } catch (const CLI::ParseError& error) {
        if (app.get_subcommands().empty())
            usage_error("name a command first: get, post, put, patch, delete or download");
        usage_error(error.what());
    }
    check(app, options, download_words);
    return options;
}

}  // namespace kel::http::tool
