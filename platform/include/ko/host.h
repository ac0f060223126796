// SPDX-License-Identifier: MIT
#ifndef KO_HOST_H
#define KO_HOST_H

#include <functional>
#include <map>
#include <string>
#include <string_view>

// How a host program sets up this version of the platform. A device has its services set up by other means and has no
// such header: only a host's main function, tools and tests include it.
namespace ko {
namespace host {

// One line on its way to the log. The texts are good during the call only and end without a line feed.
struct LogLine {
    std::string_view logger;  // name of the logger; "tovanlog" for what was written past all loggers
    int level;                // 1 errors, 2 warnings, 3 information, 4 to 7 debug, 8 detail, 9 payload
    std::string_view text;    // the line itself
};

// Where log lines go. Empty: nowhere.
//
// Called on whatever thread writes the line, one call at a time, and while no other lock of the library is held. What a
// sink itself logs is dropped, and it must not call configure(). An exception leaving a sink costs the line and nothing
// more.
using LogSink = std::function<void(const LogLine&)>;

// Sinks that write one line for each call, and have written it when the call returns: time, logger and level, as
// "2026-01-31 12:00:00.000 [HttpClient] [1] text". The level stands there as a number: 1 is also that of lines that are
// always written, and those are no errors.
LogSink log_to_stderr();
// Appends to the file `path`, which is made (with its folders) if there is none.
// Errors: throws std::runtime_error when the file cannot be opened.
LogSink log_to_file(const std::string& path);
// Writes to the system's log under the name `identity`, "[HttpClient] text"; the log adds a time. Its priorities are
// "err" for level 1, "warning", "info", and "debug" from level 4 on.
LogSink log_to_syslog(const std::string& identity);

// What configure() takes. A program names what differs from these defaults.
struct Settings {
    // Folder for files that may vanish with a restart, without a slash at the end. Cookies are kept there, which are as
    // good as passwords: it should be this user's alone. Empty (the default): one that is, "kel-http" in
    // $XDG_RUNTIME_DIR where that is this user's and has mode 0700, else "/tmp/kel-http-" and the number of the user. It
    // is made when it is first asked for; where it belongs to somebody else, or others have rights to it, nothing is
    // kept.
    std::string temporary_directory;
    // Files with trusted certificates (PEM) by the name under which they are asked for.
    std::map<std::string, std::string> ca_bundles = {{"default", "/etc/ssl/certs/ca-certificates.crt"}};
    // Folder with this device's certificate and key, device_cert.der and device_key.der. Empty (the default): a
    // development identity is made up for this process, with a self-signed certificate that no server has reason to
    // trust. The first handshake that may present it makes it, while all transfers wait: a fraction of a second, on a
    // slow processor several seconds. The process stops where it can not be made.
    std::string secure_store_directory;
    // What platforminfo says about this system.
    bool release_build = false;
    bool test_mode = false;
    // Verbosity of all loggers that `log_levels` does not name: lines up to this level are written; 0 silences them.
    int log_level = 1;
    // Verbosity of single loggers, by name.
    std::map<std::string, int> log_levels;
    // Where log lines go.
    LogSink log_sink = log_to_stderr();
};

// Puts `settings` into effect, for loggers that exist already as well.
//
// Call it before the first engine is made; a later call changes what is asked from then on. A process that never calls
// it has the defaults above, but logs nothing.
// Threads: any.
void configure(const Settings& settings);

}  // namespace host
}  // namespace ko

#endif  // KO_HOST_H
