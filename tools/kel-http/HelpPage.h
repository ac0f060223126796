// SPDX-License-Identifier: MIT
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace kel::http::tool {

// The one page that --help prints, for the tool and for each of its commands.
class HelpPage : public CLI::Formatter {
 public:
    HelpPage() { column_width(32); }

    std::string make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const override;
    std::string make_group(std::string group, bool is_positional,
                           std::vector<const CLI::Option*> options) const override;
    std::string make_option(const CLI::Option* option, bool is_positional) const override;
};

}  // namespace kel::http::tool
