// SPDX-License-Identifier: MIT
#include "HostSettings.h"

#include "Files.h"
#include "LogListener.h"
#include "ToolError.h"
#include "tervo/platforminfo.h"

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
    if (options.temporary_folder) check_folder(settings.temporary_directory, options.cookies == CookieJar::rw_cookies);

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

void check_cookie_folder(const Options& options) {
    if (options.cookies != CookieJar::rw_cookies || options.temporary_folder) return;
    if (!tervo::platforminfo::get_resource_filepath("PATH_TYPE_TEMP").empty()) return;
    throw ToolError(LocalFileError,
                    "cookies can not be kept: this user has no folder of its own for them; name one with --temp-dir");
}

}  // namespace kel::http::tool
