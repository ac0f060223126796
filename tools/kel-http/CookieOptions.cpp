// SPDX-License-Identifier: MIT
#include "CookieOptions.h"

#include <CLI/CLI.hpp>

#include "Choice.h"
#include "ToolError.h"

namespace kel::http::tool {

void add_cookie_options(CLI::App& app, Options& options) {
    constexpr const char* group = "Cookies";
    add_choice<CookieJar>(
        app, "--cookies", options.cookies,
        {{"none", CookieJar::no_cookies}, {"read", CookieJar::ro_cookies}, {"write", CookieJar::rw_cookies}},
        "none, those kept so far (default), or keep new ones too")
        ->group(group);
    app.add_flag("--reset-state", options.reset_state, "forget the cookies of this server first")->group(group);
    app.add_option("--temp-dir", options.temporary_folder, "keep httpcookies here (default: a private folder)")
        ->option_text("DIR")
        ->group(group);
}

void check_cookie_options(const Options& options) {
    if (options.temporary_folder && options.cookies == CookieJar::no_cookies) {
        usage_error("--temp-dir is where cookies are kept: leave it out, or --cookies none");
    }
}

}  // namespace kel::http::tool
