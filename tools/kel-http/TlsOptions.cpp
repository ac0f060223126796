// SPDX-License-Identifier: MIT
#include "TlsOptions.h"

#include <CLI/CLI.hpp>

#include "Choice.h"
#include "ToolError.h"

namespace kel::http::tool {
namespace {

constexpr const char* group = "TLS";

void add_file(CLI::App& app, const char* name, std::optional<std::string>& path, const char* text,
              const char* description) {
    app.add_option(name, path, description)->option_text(text)->group(group);
}

}  // namespace

void add_tls_options(CLI::App& app, Options& options) {
    add_file(app, "--ca-file", options.ca_file, "FILE", "trust these certificates (PEM), not the system's");
    add_file(app, "--ca-dir", options.ca_folder, "DIR", "trust those in this folder as well (openssl rehash)");
    app.add_flag("--partial-chain", options.partial_chain, "trust an intermediate certificate on its own")
        ->group(group);
    app.add_flag("!--insecure", options.verify_server, "do not check who the server is")->group(group);
    using Version = MinTlsVersion;
    add_choice<Version>(app, "--min-tls", options.min_tls,
                        {{"1.0", Version::tls1_0}, {"1.1", Version::tls1_1}, {"1.2", Version::tls1_2}},
                        "oldest TLS version to accept (1.1)")
        ->group(group);
    add_file(app, "--cert", options.own_certificate, "FILE", "this client's certificate (PEM), with --key");
    add_file(app, "--key", options.own_key, "FILE", "its private key (PEM)");
    add_file(app, "--device-cert-dir", options.device_folder, "DIR", "folder with device_cert.der, device_key.der");
}

void check_tls_options(const Options& options) {
    if (options.own_certificate && !options.own_key) usage_error("--cert needs its private key: give it with --key");
    if (options.own_key && !options.own_certificate) {
        usage_error("--key needs the certificate it belongs to: give it with --cert");
    }
    if (options.own_certificate && options.device_folder) {
        usage_error("this client has one certificate: give --cert and --key, or --device-cert-dir");
    }
    if (!options.verify_server && (options.ca_file || options.ca_folder || options.partial_chain)) {
        usage_error("--insecure trusts everybody: leave it out, or --ca-file, --ca-dir and --partial-chain");
    }
}

}  // namespace kel::http::tool
