// SPDX-License-Identifier: MIT
#include "kel-http/ResponseData.h"

#include <gtest/gtest.h>

namespace kel::http {
namespace {

TEST(ResponseDataTest, ThreeValuesLeaveTheRestUnset) {
    const ResponseData data(204, {{"X-A", "b"}}, "text");
    EXPECT_EQ(data.status, 204);
    EXPECT_EQ(data.headers.at("x-a"), "b");
    EXPECT_EQ(data.body, "text");
    EXPECT_FALSE(data.redirect_url);
    EXPECT_EQ(data.redirect_count, 0);
    EXPECT_FALSE(data.timing_data);
}

TEST(ResponseDataTest, FiveValuesSetTheRedirect) {
    const ResponseData data(302, {}, "", std::string("http://there/"), 2);
    EXPECT_EQ(data.redirect_url, std::string("http://there/"));
    EXPECT_EQ(data.redirect_count, 2);
    EXPECT_FALSE(data.timing_data);
}

TEST(ResponseDataTest, EmptyRedirectUrlIsNotAnUnsetOne) {
    const ResponseData data(200, {}, "", std::string(), 1);
    ASSERT_TRUE(data.redirect_url);
    EXPECT_EQ(*data.redirect_url, "");
}

}  // namespace
}  // namespace kel::http
