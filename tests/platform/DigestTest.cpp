// SPDX-License-Identifier: MIT
#include "checksum/Digest.h"

#include <gtest/gtest.h>

#include <string>

#include "ko/to_hex.h"

namespace {

void feed(checksum::Digest& digest, const std::string& text) {
    digest.do_update({reinterpret_cast<const unsigned char*>(text.data()), text.size()});
}

std::string sha256_of(const std::string& text) {
    const auto digest = checksum::sha256();
    feed(*digest, text);
    return ko::to_hex(digest->done());
}

constexpr auto of_nothing = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";
constexpr auto of_abc = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

TEST(DigestTest, Sha256GivesThePublishedChecksums) {
    EXPECT_EQ(of_nothing, sha256_of(""));
    EXPECT_EQ(of_abc, sha256_of("abc"));
    EXPECT_EQ("248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1",
              sha256_of("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"));
    EXPECT_EQ("cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0", sha256_of(std::string(1000000, 'a')));
}

TEST(DigestTest, PiecesCountLikeTheWhole) {
    const auto digest = checksum::sha256();
    feed(*digest, "a");
    digest->do_update({});
    feed(*digest, "bc");
    EXPECT_EQ(of_abc, ko::to_hex(digest->done()));
}

TEST(DigestTest, NothingFedGivesTheChecksumOfNothing) {
    const auto bytes = checksum::sha256()->done();
    EXPECT_EQ(32U, bytes.size());
    EXPECT_EQ(of_nothing, ko::to_hex(bytes));
}

TEST(DigestTest, FinishedDigestStartsAnew) {
    const auto digest = checksum::sha256();
    feed(*digest, "something else");
    digest->done();
    feed(*digest, "abc");
    EXPECT_EQ(of_abc, ko::to_hex(digest->done()));
}

}  // namespace
