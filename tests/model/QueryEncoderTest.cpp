// SPDX-License-Identifier: MIT
#include "kel-http/QueryEncoder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <cstdint>
#include <limits>
#include <string_view>

namespace kel::http {
namespace {

const std::string unreserved = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ-_.!~*'()";
const std::string delimiters = ";,/?:@&=+$#";

TEST(EncodeTest, BlankAndAmpersandOfAComponentAreEncoded) {
    EXPECT_EQ(encodeURIComponent("a b&c"), "a%20b%26c");
    EXPECT_EQ(encodeURI("a b&c"), "a%20b&c");
}

TEST(EncodeTest, UnreservedCharactersPassBoth) {
    EXPECT_EQ(encodeURIComponent(unreserved), unreserved);
    EXPECT_EQ(encodeURI(unreserved), unreserved);
}

TEST(EncodeTest, DelimitersPassOnlyInAWholeUrl) {
    EXPECT_EQ(encodeURI(delimiters), delimiters);
    EXPECT_EQ(encodeURIComponent(delimiters), "%3B%2C%2F%3F%3A%40%26%3D%2B%24%23");
}

TEST(EncodeTest, EveryOtherByteBecomesTwoUpperCaseDigits) {
    const std::string kept = unreserved + delimiters;
    for (int value = 0; value < 256; ++value) {
        const char byte = static_cast<char>(value);
        if (kept.find(byte) != std::string::npos) continue;
        char expected[4];
        snprintf(expected, sizeof expected, "%%%02X", static_cast<unsigned>(value));
        EXPECT_EQ(encodeURI(std::string(1, byte)), expected);
        EXPECT_EQ(encodeURIComponent(std::string(1, byte)), expected);
    }
}

TEST(EncodeTest, BytesOfAMultiByteCharacterAreEncodedOneByOne) {
    EXPECT_EQ(encodeURIComponent("\xC3\xA9"), "%C3%A9");
}

TEST(EncodeTest, PercentIsEncodedAgain) {
    EXPECT_EQ(encodeURIComponent("%20"), "%2520");
    EXPECT_EQ(encodeURI("%20"), "%2520");
}

TEST(EncodeTest, EmptyTextStaysEmpty) {
    EXPECT_EQ(encodeURIComponent(""), "");
    EXPECT_EQ(encodeURI(""), "");
}

TEST(QueryEncoderTest, FreshQueryIsEmpty) {
    EXPECT_EQ(QueryEncoder().getQueryString(), "");
}

TEST(QueryEncoderTest, ParametersAppearInTheOrderOfTheCalls) {
    QueryEncoder query;
    query.addParameter("q", "x y");
    query.addParameter("n", -5);
    EXPECT_EQ(query.getQueryString(), "q=x%20y&n=-5");
    query.addParameter("q", "again");
    EXPECT_EQ(query.getQueryString(), "q=x%20y&n=-5&q=again");
}

TEST(QueryEncoderTest, EmptyValueKeepsItsName) {
    QueryEncoder query;
    query.addParameter("name", "");
    EXPECT_EQ(query.getQueryString(), "name=");
}

TEST(QueryEncoderTest, NameIsEncodedToo) {
    QueryEncoder query;
    query.addParameter("a=b&c", "d");
    EXPECT_EQ(query.getQueryString(), "a%3Db%26c=d");
}

TEST(QueryEncoderTest, DelimitersInAValueAreEncoded) {
    QueryEncoder query;
    query.addParameter("name", "a=b&c+d#e");
    EXPECT_EQ(query.getQueryString(), "name=a%3Db%26c%2Bd%23e");
}

TEST(QueryEncoderTest, NumbersAreDecimal) {
    QueryEncoder query;
    query.addParameter("zero", 0);
    query.addParameter("low", INT_MIN);
    query.addParameter("high", INT_MAX);
    EXPECT_EQ(query.getQueryString(), "zero=0&low=-2147483648&high=2147483647");
}

template <typename Value>
std::string encoded(const Value& value) {
    QueryEncoder query;
    query.addParameter("n", value);
    return query.getQueryString();
}

template <typename Number>
void expectBothEndsAreDecimal() {
    using Limits = std::numeric_limits<Number>;
    EXPECT_EQ(encoded(Limits::min()), "n=" + std::to_string(Limits::min()));
    EXPECT_EQ(encoded(Limits::max()), "n=" + std::to_string(Limits::max()));
}

TEST(QueryEncoderTest, NumbersOfEachTypeAreDecimalAndWhole) {
    expectBothEndsAreDecimal<signed char>();
    expectBothEndsAreDecimal<unsigned char>();
    expectBothEndsAreDecimal<short>();
    expectBothEndsAreDecimal<unsigned short>();
    expectBothEndsAreDecimal<int>();
    expectBothEndsAreDecimal<unsigned>();
    expectBothEndsAreDecimal<long>();
    expectBothEndsAreDecimal<unsigned long>();
    expectBothEndsAreDecimal<long long>();
    expectBothEndsAreDecimal<unsigned long long>();
    EXPECT_EQ(encoded(std::size_t(3)), "n=3");
    EXPECT_EQ(encoded(std::int64_t(1) << 40), "n=1099511627776");
}

TEST(QueryEncoderTest, BytesAreNumbers) {
    EXPECT_EQ(encoded(std::uint8_t('A')), "n=65");
    EXPECT_EQ(encoded(std::int8_t(-1)), "n=-1");
}

TEST(QueryEncoderTest, WhatHoldsANumberIsThatNumber) {
    const std::atomic<std::int64_t> counter(std::int64_t(1) << 40);
    EXPECT_EQ(encoded(counter), "n=1099511627776");
    struct {
        std::uint64_t field : 40;
    } bits{(std::uint64_t(1) << 40) - 1};
    QueryEncoder query;
    query.addParameter("n", bits.field);
    EXPECT_EQ(query.getQueryString(), "n=1099511627775");
}

enum Plain { zero, seven = 7 };
enum Narrow : char { letter = 'A' };
enum OneBit : bool { off, on };
enum Wide : std::int64_t { wide = std::int64_t(1) << 40 };

TEST(QueryEncoderTest, EnumeratorsAreTheirNumbers) {
    EXPECT_EQ(encoded(zero), "n=0");
    EXPECT_EQ(encoded(seven), "n=7");
    EXPECT_EQ(encoded(letter), "n=65");
    EXPECT_EQ(encoded(on), "n=1");
    EXPECT_EQ(encoded(wide), "n=1099511627776");
}

TEST(QueryEncoderTest, TextsOfEachKindAreTexts) {
    char buffer[] = "in a buffer";
    char* const changeable = buffer;
    const char* const pointer = buffer;
    EXPECT_EQ(encoded(buffer), "n=in%20a%20buffer");
    EXPECT_EQ(encoded(changeable), "n=in%20a%20buffer");
    EXPECT_EQ(encoded(pointer), "n=in%20a%20buffer");
    EXPECT_EQ(encoded("literal"), "n=literal");
    EXPECT_EQ(encoded(std::string("string")), "n=string");
    EXPECT_EQ(encoded(std::string_view(buffer, 2)), "n=in");
    QueryEncoder query;
    query.addParameter("n", {buffer, 4});
    EXPECT_EQ(query.getQueryString(), "n=in%20a");
}

}  // namespace
}  // namespace kel::http
