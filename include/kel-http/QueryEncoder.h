// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "kel-http/Export.h"

// Percent-encodes `text` as one component of an URL: a path segment, a name or a value of the query (RFC 3986, section
// 2.1). Letters, digits and "-_.!~*'()" stay; every other byte becomes "%" and two upper-case hexadecimal digits.
// Nothing is rejected, and a "%" is encoded like any other byte. Any thread.
KEL_HTTP_EXPORT std::string encodeURIComponent(const std::string& text);

// The same for a whole URL: its delimiters ";,/?:@&=+$#" stay, too. Any thread.
KEL_HTTP_EXPORT std::string encodeURI(const std::string& text);

namespace kel::http {
namespace detail {

// Which values QueryEncoder refuses, found as if it had a call for each type: what holds one of them, as
// std::vector<bool>'s elements do, is refused with it. As an int, which C++ makes of them in silence, a price would lose its
// cents, and a letter become its code. Pointers are taken for a bool here, and refused as one.
struct QueryValue {
    // Chosen for what is refused ...
    static std::true_type refused(bool);
    static std::true_type refused(char);
    static std::true_type refused(wchar_t);
    static std::true_type refused(char16_t);
    static std::true_type refused(char32_t);
#ifdef __cpp_char8_t
    static std::true_type refused(char8_t);
#endif
    static std::true_type refused(float);
    static std::true_type refused(double);
    static std::true_type refused(long double);
    static std::true_type refused(std::nullptr_t);

    // ... and for what is taken, as addParameter() is.
    static std::false_type refused(const std::string&);
    static std::false_type refused(const char*);
    static std::false_type refused(int);
    static std::false_type refused(unsigned int);
    static std::false_type refused(long);
    static std::false_type refused(unsigned long);
    static std::false_type refused(long long);
    static std::false_type refused(unsigned long long);

    // Enumerators are their numbers, whatever type these have.
    template <typename Value>
    using IfRefused =
        std::enable_if_t<!std::is_enum_v<Value> && decltype(refused(std::declval<const Value&>()))::value, int>;
};

}  // namespace detail

// Builds the query of an URL, "name=value&name=value", in the order of the calls. Nothing is sorted or left out.
// One thread at a time.
class KEL_HTTP_EXPORT QueryEncoder {
 public:
    QueryEncoder();

    // Appends a parameter; both texts are encoded as components. An empty value yields "name=".
    void addParameter(const std::string& name, const std::string& value);
    template <typename Text, std::enable_if_t<std::is_same_v<Text, std::string_view>, int> = 0>
    void addParameter(const std::string& name, Text value) {
        addParameter(name, std::string(value));
    }

    // Appends a parameter with a decimal number, of any integer type. Smaller ones than int are numbers, too: so are
    // std::int8_t and std::uint8_t, which are a signed and an unsigned char, and the values of an unscoped enumeration.
    void addParameter(const std::string& name, int value);
    void addParameter(const std::string& name, unsigned int value) { addParameter(name, std::to_string(value)); }
    void addParameter(const std::string& name, long value) { addParameter(name, std::to_string(value)); }
    void addParameter(const std::string& name, unsigned long value) { addParameter(name, std::to_string(value)); }
    void addParameter(const std::string& name, long long value) { addParameter(name, std::to_string(value)); }
    void addParameter(const std::string& name, unsigned long long value) { addParameter(name, std::to_string(value)); }

    // What is neither does not compile: there is more than one way to write it, and the server knows one of them.
    template <typename Value, detail::QueryValue::IfRefused<Value> = 0>
    void addParameter(const std::string& /*name*/, const Value& /*value*/) {
        static_assert(
            std::is_void_v<Value>,
            "QueryEncoder::addParameter() takes a text or a whole number. Write the value as the server wants it: "
            "a bool as (flag ? \"true\" : \"false\") or int(flag), a character as std::string(1, character), a "
            "floating-point number as fmt::format(\"{:.2f}\", number)");
    }

    // A copy of the query so far, without a leading "?".
    std::string getQueryString() const;

 private:
    std::string query_;
};

}  // namespace kel::http
