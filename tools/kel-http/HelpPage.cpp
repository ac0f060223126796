// SPDX-License-Identifier: MIT
#include "HelpPage.h"

#include <fmt/format.h>

namespace kel::http::tool {
namespace {

constexpr auto usage = R"(
Usage: kel-http COMMAND URL [OPTIONS]
       kel-http download URL [PATH] [URL [PATH]]... [OPTIONS]
       Without a scheme, http:// is assumed; for further URLs of download it is needed.
)";

constexpr auto epilogue = R"(
Exit codes:
  0    the server answered with a status below 400
  1    the command line is wrong
  2    the server answered with a status of 400 or more; to download: with none of 200 to 299
  3    no answer: not reached, timed out, too large, broken off ...
  4    a local file could not be read or written
  5    the downloaded file has another checksum than --sha256 expects
  130  interrupted by Ctrl-C

Examples:
  kel-http get localhost:8080/status
  kel-http get https://example.org/ --include --timing
  kel-http get http://host/image.bin -o image.bin --timeout 1m
  kel-http post http://host/items -d '{"name": "lamp"}' --json
  kel-http post http://host/login -d 'user=me&remember=1'
  kel-http post http://host/photos -F title=Lake -F 'photo=@lake.jpg;type=image/jpeg'
  kel-http put http://host/image.bin --upload image.bin
  date | kel-http patch http://host/clock --data-file -
  kel-http delete http://host/items/7 -u admin --password secret
  kel-http get https://device.example/ --ca-file ca.pem --cert me.pem --key me.key
  kel-http get http://host/status --proxy http://a:3128 --proxy http://b:3128 -v
  kel-http get http://host/login --cookies write --temp-dir ~/cookies
  kel-http download http://host/image.bin --sha256 "$SUM"
  kel-http download http://host/image.bin /srv/image.bin --resume --limit-rate 500K
  kel-http download http://host/a.bin http://host/b.bin --json
)";

// "-H, --header 'NAME: VALUE'", with room left for a short name that is not there.
std::string left_column(const CLI::Option& option) {
    const bool has_short = !option.get_snames().empty();
    const bool has_long = !option.get_lnames().empty();
    std::string text = has_short ? "-" + option.get_snames().front() : "  ";
    if (has_long) text += (has_short ? ", --" : "  --") + option.get_lnames().front();
    if (!option.get_option_text().empty()) text += " " + option.get_option_text();
    return text;
}

}  // namespace

std::string HelpPage::make_help(const CLI::App* app, std::string, CLI::AppFormatMode mode) const {
    return app->get_description() + "\n" + usage + make_subcommands(app, mode) + "\n" + make_groups(app, mode) +
           epilogue;
}

std::string HelpPage::make_group(std::string group, bool, std::vector<const CLI::Option*> options) const {
    std::string text = fmt::format("{}:\n", group);
    for (const CLI::Option* const option : options) text += make_option(option, false);
    return text;
}

std::string HelpPage::make_option(const CLI::Option* option, bool) const {
    const std::string left = left_column(*option);
    // A name that is too long for its column has the line to itself.
    const bool fits = left.size() + 4 <= get_column_width();
    const std::string gap =
        fits ? std::string(get_column_width() - left.size() - 2, ' ') : "\n" + std::string(get_column_width(), ' ');
    return fmt::format("  {}{}{}\n", left, gap, option->get_description());
}

}  // namespace kel::http::tool
