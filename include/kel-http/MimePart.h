// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace kel::http {

// One part of a multipart form (RFC 7578).
struct MimePart {
    // The form field's name.
    std::string name;

    // The part's content; may hold zero bytes. Ignored when `file_path` is set.
    std::string data;

    // A file to send instead of `data`, read while the request is sent. The whole path, as given here, is also the file
    // name that the server is told. Empty (the default): `data` is sent. A file that is missing fails the request.
    std::string file_path;

    // The part's own "Content-Type"; empty (the default): libcurl's choice.
    std::string content_type;
};

}  // namespace kel::http
