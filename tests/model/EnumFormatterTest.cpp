// SPDX-License-Identifier: MIT
#include "kel-http/EnumFormatter.h"

#include <gtest/gtest.h>

#include <csignal>

#include "kel-http/RequestConfig.h"

namespace kel::http {
namespace {

// The pattern comes from a variable, so that nothing is checked at compile time.
template <typename Value>
std::string format(const std::string& pattern, const Value& value) {
    return fmt::vformat(pattern, fmt::make_format_args(value));
}

TEST(EnumFormatterTest, MethodsPrintTheirNamesInTheOrderOfTheirNumbers) {
    EXPECT_EQ(fmt::format("{} {} {} {} {}", Method(0), Method(1), Method(2), Method(3), Method(4)),
              "POST PUT GET DELETE PATCH");
}

TEST(EnumFormatterTest, AuthMethodsPrintTheirNames) {
    EXPECT_EQ(fmt::format("{} {}", AuthMethod(0), AuthMethod(1)), "BASIC ANY");
}

TEST(EnumFormatterTest, TlsVersionsPrintTheirNames) {
    EXPECT_EQ(fmt::format("{} {} {}", MinTlsVersion(0), MinTlsVersion(1), MinTlsVersion(2)), "tls1_0 tls1_1 tls1_2");
}

TEST(EnumFormatterTest, IpVersionsPrintTheirNames) {
    EXPECT_EQ(fmt::format("{} {} {}", IPVersion(0), IPVersion(1), IPVersion(2)), "Any IPv4 IPv6");
}

TEST(EnumFormatterTest, CookieJarsPrintTheirNames) {
    EXPECT_EQ(fmt::format("{} {} {}", CookieJar(0), CookieJar(1), CookieJar(2)), "no-cookies ro-cookies rw-cookies");
}

TEST(EnumFormatterTest, ProxiesPrintTheirNames) {
    EXPECT_EQ(fmt::format("{} {}", Proxy(0), Proxy(1)), "use-proxy bypass-proxy");
}

TEST(EnumFormatterTest, TypesNoneAndSAndPPrintTheName) {
    EXPECT_EQ(fmt::vformat("[{}][{:s}][{:p}]", fmt::make_format_args(Method::GET, Method::PUT, Method::POST)),
              "[GET][PUT][POST]");
}

TEST(EnumFormatterTest, FillAlignmentWidthAndPrecisionApplyAsForText) {
    EXPECT_EQ(format("{:*>5}", Method::GET), "**GET");
    EXPECT_EQ(format("{:x<5}", Method::GET), "GETxx");
    EXPECT_EQ(format("{:^7s}|", Method::GET), "  GET  |");
    EXPECT_EQ(format("{:p<5}", Method::GET), "GETpp");
    EXPECT_EQ(format("{:.2}", Method::DELETE), "DE");
    EXPECT_EQ(format("{:8.3p}|", Method::DELETE), "DEL     |");
}

TEST(EnumFormatterTest, WidthMayBeAnArgument) {
    EXPECT_EQ(fmt::vformat("{:{}}|{}", fmt::make_format_args(Method::PUT, 5, "next")), "PUT  |next");
}

TEST(EnumFormatterTest, OtherTypesAreInvalid) {
    for (const char* const pattern : {"{:d}", "{:x}", "{:S}", "{:>5c}", "{:?}", "{:sp}", "{:s p}", "{:?p}"}) {
        try {
            format(pattern, Method::GET);
            ADD_FAILURE() << pattern << " was accepted";
        } catch (const fmt::format_error& error) {
            EXPECT_STREQ(error.what(), "invalid type specifier");
        }
    }
}

TEST(EnumFormatterDeathTest, ValuesOutsideTheirTablesAbort) {
    EXPECT_EXIT(fmt::format("{}", Method(5)), testing::KilledBySignal(SIGABRT), "");
    EXPECT_EXIT(fmt::format("{}", AuthMethod(2)), testing::KilledBySignal(SIGABRT), "");
    EXPECT_EXIT(fmt::format("{}", MinTlsVersion(3)), testing::KilledBySignal(SIGABRT), "");
    EXPECT_EXIT(fmt::format("{}", IPVersion(3)), testing::KilledBySignal(SIGABRT), "");
    EXPECT_EXIT(fmt::format("{}", CookieJar(3)), testing::KilledBySignal(SIGABRT), "");
    EXPECT_EXIT(fmt::format("{}", Proxy(2)), testing::KilledBySignal(SIGABRT), "");
}

}  // namespace
}  // namespace kel::http
