// SPDX-License-Identifier: MIT
#include "HostSettings.h"

#include "Files.h"
#include "LogListener.h"

namespace kel::http::tool {
namespace {

std::string without_slash_at_end(std::string path) {
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return path;
}

}  // namespace

ko::host::Settings host_settings(const Options& options, const ko::host::LogSink& sink) {
    ko::host::Settings settings;
    if (options.temporary_folder) settings.temporary_directory = without_slash_at_end(*options.temporary_folder);
    const bool keeps_cookies = options.cookies == CookieJar::rw_cookies;
    if (options.temporary_folder || keeps_cookies) check_folder(settings.temporary_directory, keeps_cookies);

    if (options.device_folder) {
        settings.secure_store_directory = without_slash_at_end(*options.device_folder);
        check_readable(settings.secure_store_directory + "/device_cert.der");
        check_readable(settings.secure_store_directory + "/device_key.der");
    }
    settings.log_level = LogListener::level_of_library(options);
    settings.log_levels["HttpClient"] = LogListener::level_of_engine(options);
    settings.log_sink = sink;
    return settings;
}

}  // namespace kel::http::tool
