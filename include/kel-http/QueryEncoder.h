// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "kel-http/Export.h"

// Percent-encodes `text` as one component of an URL: a path segment, a name or a value of the query (RFC 3986, section
// 2.1). Letters, digits and "-_.!~*'()" stay; every other byte becomes "%" and two upper-case hexadecimal digits.
// Nothing is rejected, and a "%" is encoded like any other byte. Any thread.
KEL_HTTP_EXPORT std::string encodeURIComponent(const std::string& text);

// The same for a whole URL: its delimiters ";,/?:@&=+$#" stay, too. Any thread.
KEL_HTTP_EXPORT std::string encodeURI(const std::string& text);

namespace kel::http {

// Builds the query of an URL, "name=value&name=value", in the order of the calls. Nothing is sorted or left out.
// One thread at a time.
class KEL_HTTP_EXPORT QueryEncoder {
 public:
    QueryEncoder();

    // Appends a parameter; both texts are encoded as components. An empty value yields "name=".
    void addParameter(const std::string& name, const std::string& value);

    // Appends a parameter with a decimal number.
    void addParameter(const std::string& name, int value);

    // A copy of the query so far, without a leading "?".
    std::string getQueryString() const;

 private:
    std::string query_;
};

}  // namespace kel::http
