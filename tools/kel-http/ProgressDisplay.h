// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <vector>

#include "Options.h"
#include "common/ProgressBar.h"

namespace kel::http::tool {

// Tells a person on standard error how far downloads have come.
//
// Threads: one.
class ProgressDisplay {
 public:
    using Bars = std::vector<const ProgressBar*>;

    virtual ~ProgressDisplay() = default;

    // How long there is nothing to show at most. Nothing: there never is.
    virtual std::optional<std::chrono::milliseconds> interval() const = 0;
    // Shows what is running, unless that was done a short while ago.
    virtual void show(const Bars& running) = 0;
    // The last words on one that has come to a good end.
    virtual void finish(const ProgressBar& bar) = 0;
    // Makes room for other output.
    virtual void clear() = 0;

    // How progress calls the file at `path`.
    virtual std::string name_of(const std::string& path) const = 0;
};

// Bars that are drawn in place on a terminal; lines, one a second at most, where there is none, and where a log is
// written between them; nothing with --json.
std::unique_ptr<ProgressDisplay> make_progress_display(const Options& options);

}  // namespace kel::http::tool
