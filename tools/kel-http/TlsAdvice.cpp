// SPDX-License-Identifier: MIT
#include "TlsAdvice.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <array>
#include <ctime>

#include "LineParts.h"

namespace kel::http::tool {
namespace {

enum class Problem {
    Expired,
    NotYetValid,
    WrongHost,
    UnknownRoot,
    UnknownIssuer,
    SelfSigned,
    OldServer,
    NoTls,
    ClientCertificate,
    OwnCertificate,
    OwnKey,
    CaFile
};

struct Fragment {
    std::string_view text;
    Problem problem;
};

// The first that is found counts. OpenSSL's wording changes little between releases, libcurl's a bit more.
constexpr std::array<Fragment, 26> fragments = {{
    {"certificate has expired", Problem::Expired},
    {"certificate is not yet valid", Problem::NotYetValid},
    {"certificate subject name", Problem::WrongHost},
    {"certificate in certificate chain", Problem::UnknownRoot},
    {"self-signed certificate", Problem::SelfSigned},
    {"self signed certificate", Problem::SelfSigned},
    {"unable to get local issuer certificate", Problem::UnknownIssuer},
    {"unable to get issuer certificate", Problem::UnknownIssuer},
    {"unable to verify the first certificate", Problem::UnknownIssuer},
    {"alert protocol version", Problem::OldServer},
    {"unsupported protocol", Problem::OldServer},
    {"legacy sigalg", Problem::OldServer},
    {"version too low", Problem::OldServer},
    {"wrong version number", Problem::NoTls},
    {"alert certificate required", Problem::ClientCertificate},
    {"alert unknown ca", Problem::ClientCertificate},
    {"alert bad certificate", Problem::ClientCertificate},
    {"alert certificate unknown", Problem::ClientCertificate},
    {"alert certificate expired", Problem::ClientCertificate},
    {"alert certificate revoked", Problem::ClientCertificate},
    {"alert unsupported certificate", Problem::ClientCertificate},
    {"alert access denied", Problem::ClientCertificate},
    // Not here: this is how libcurl words a server's alert that the certificate has expired.
    {"SSL certificate verification failed", Problem::ClientCertificate},
    {"could not load PEM client certificate", Problem::OwnCertificate},
    {"unable to set private key file", Problem::OwnKey},
    {"error setting certificate", Problem::CaFile},
}};

std::string present_date() {
    return fmt::format("{:%Y-%m-%d %H:%M} UTC", fmt::gmtime(std::time(nullptr)));
}

std::string_view lowest_version(const Options& options) {
    switch (options.min_tls.value_or(MinTlsVersion::tls1_1)) {
        case MinTlsVersion::tls1_0:
            return "1.0";
        case MinTlsVersion::tls1_1:
            return "1.1";
        case MinTlsVersion::tls1_2:
            break;
    }
    return "1.2";
}

std::string about_client_certificate(const Options& options) {
    if (!options.own_certificate && !options.device_folder) {
        return "the server demands a certificate of this client: give one with --cert and --key, or this device's with "
               "--device-cert-dir";
    }
    const std::string file =
        options.own_certificate ? *options.own_certificate : *options.device_folder + "/device_cert.der";
    return fmt::format(
        "the server does not accept the certificate in '{}': it may have expired, or be signed by nobody "
        "the server trusts",
        file);
}

std::string about_ca_file(const Options& options) {
    if (!options.ca_file)
        return "the system's trusted certificates can not be read: name a file of them with --ca-file";
    return fmt::format("'{}' holds no certificates in PEM form", *options.ca_file);
}

std::string sentence(Problem problem, const Options& options) {
    switch (problem) {
        case Problem::Expired:
            return fmt::format(
                "the server's certificate has expired: its operator has to renew it, unless this "
                "device's clock is wrong, which says {}",
                present_date());
        case Problem::NotYetValid:
            return fmt::format(
                "the server's certificate is not yet valid: the clock of this device is probably wrong, "
                "it says {}",
                present_date());
        case Problem::WrongHost:
            return "the server's certificate is for another host: use the name that stands in it";
        case Problem::UnknownRoot:
            return "nobody trusted here has signed the server's certificate: name the authority that did with "
                   "--ca-file "
                   "or --ca-dir";
        case Problem::UnknownIssuer:
            return "nobody trusted here has signed the server's certificate: name the authority that did with "
                   "--ca-file "
                   "or --ca-dir; or else the server does not send the intermediate certificate, as it ought to";
        case Problem::SelfSigned:
            return "the server has signed its certificate itself: to trust it all the same, name it with --ca-file or "
                   "--ca-dir";
        case Problem::OldServer:
            return fmt::format("the server is too old: it offers no version of TLS that is accepted here, {} or newer",
                               lowest_version(options));
        case Problem::NoTls:
            return "the server does not speak TLS there: is the port right, or is it http:// ?";
        case Problem::ClientCertificate:
            return about_client_certificate(options);
        case Problem::OwnCertificate:
            return "--cert holds no certificate in PEM form";
        case Problem::OwnKey:
            return "--key holds no private key in PEM form, or not that of --cert";
        case Problem::CaFile:
            return about_ca_file(options);
    }
    return {};
}

std::string about_device(const ConnectionTrouble& trouble, const Options& options) {
    const bool is_missing = trouble.device_certificate().find("Failed Fetch") != std::string::npos;
    return fmt::format(
        "the device's certificate in '{}' {}: it takes device_cert.der and device_key.der, an RSA key, "
        "of 4096 bytes at most",
        options.device_folder.value_or(""), is_missing ? "is missing" : "can not be used");
}

}  // namespace

void ConnectionTrouble::hear(std::string_view line) {
    if (const auto reason = after("setMicToCtx: ", line)) device_certificate_ = *reason;
    const auto target = after("Failed to connect to '", without_request_id(line));
    if (!target) return;
    constexpr std::string_view separator = "': ";
    const auto end = target->find(separator);
    if (end != std::string_view::npos) words_ = target->substr(end + separator.size());
}

std::string tls_advice(const ConnectionTrouble& trouble, const Options& options) {
    if (!trouble.device_certificate().empty()) return about_device(trouble, options);
    for (const Fragment& fragment : fragments) {
        if (trouble.words().find(fragment.text) != std::string::npos) return sentence(fragment.problem, options);
    }
    return {};
}

}  // namespace kel::http::tool
