// SPDX-License-Identifier: MIT
#ifndef URI_URI_H
#define URI_URI_H

#include <string>

namespace uri {

// A parsed URL. Immutable; copies are independent. Threads: as any value.
class uri {
 public:
    // Never fails: a text that is no URL gives an object whose parts are empty.
    explicit uri(const std::string& text);

    // The host to connect to, without user, password, port or the brackets of an IPv6 address; in the case in which it
    // was written. Empty when there is none. A text without a scheme is read as transfers read it: "host/path".
    const std::string& authority_host() const noexcept { return authority_host_; }

 private:
    std::string authority_host_;
};

}  // namespace uri

#endif  // URI_URI_H
