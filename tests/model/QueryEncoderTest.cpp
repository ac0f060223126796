// SPDX-License-Identifier: MIT
#include "kel-http/QueryEncoder.h"

#include <gtest/gtest.h>

#include <climits>

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

}  // namespace
}  // namespace kel::http
