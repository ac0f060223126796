// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "kel-http/curl/FileState.h"

// The files that OpenSSL opens on the engine thread, which waits for whatever opening them waits for: a pipe that nobody
// writes to would hold up all transfers. So they are looked at first. A file that is not there is no concern of these.
//
// Each throws std::runtime_error with a text for the person who set the option.
namespace kel::http {

// `path` is a regular file, where links lead, or nothing. `option` is what the text calls it. An empty path is nothing.
void requireRegularFile(const char* option, const std::string& path);

// The same of a file that stat(2) has told this about.
void requireRegularFile(const char* option, const std::string& path, const struct stat& status);

// In `folders`, one or several with colons between them, what OpenSSL takes for a certificate or a list of revoked ones
// by its name, 0123abcd.0 or 0123abcd.r0, is a regular file. The state is that of all these files.
FileState requireRegularCertificates(const std::string& folders);

// The private key that OpenSSL would find in the PEM file is not encrypted: nobody is there to be asked for a pass
// phrase, and libcurl does not tell what was wrong. A file that can not be read is left to libcurl.
void requireReadyKey(const std::string& path);

}  // namespace kel::http
