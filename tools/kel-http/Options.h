// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kel-http/RequestConfig.h"

namespace kel::http::tool {

// A file to download.
struct DownloadTarget {
    std::string url;
    std::string path;
};

// The command download.
struct DownloadOptions {
    std::vector<DownloadTarget> targets;  // none: it is another command
    bool resume = false;
    bool keep_partial = false;
    bool show_sha256 = false;
    std::string expected_sha256;  // lower-case hex; empty: any
};

// The command line, checked for what can be seen without touching a file.
struct Options {
    Method method = Method::GET;
    std::string url;  // of a download: see there
    DownloadOptions download;

    std::vector<std::string> headers;  // "Name: value"
    std::optional<std::string> data;
    std::optional<std::string> data_file;  // "-": standard input
    std::optional<std::string> upload;
    std::vector<std::string> form;  // "name=value", "name=@file;type=text/plain"

    std::string user;
    std::string password;
    AuthMethod auth = AuthMethod::ANY;

    bool follow_redirects = true;
    std::chrono::milliseconds timeout{0};      // 0: none
    std::optional<std::uint32_t> size_limit;   // bytes
    std::optional<std::uint32_t> speed_limit;  // bytes per second
    IPVersion ip_version = IPVersion::Any;

    std::optional<std::string> ca_file;
    std::optional<std::string> ca_folder;
    bool partial_chain = false;
    bool verify_server = true;
    std::optional<MinTlsVersion> min_tls;
    std::optional<std::string> own_certificate;  // with its key, or both not
    std::optional<std::string> own_key;
    std::optional<std::string> device_folder;

    std::vector<std::string> proxies;  // in the order in which they are tried
    std::string proxy_user;
    std::string proxy_password;
    bool use_proxies = true;

    CookieJar cookies = CookieJar::ro_cookies;
    bool reset_state = false;
    std::optional<std::string> temporary_folder;

    std::optional<std::string> output;  // the file for the body; none: standard output
    bool include_headers = false;
    bool timing = false;
    bool json = false;
    int verbosity = 0;  // how often -v was given
};

}  // namespace kel::http::tool
