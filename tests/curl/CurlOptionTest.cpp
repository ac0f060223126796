// SPDX-License-Identifier: MIT
#include "kel-http/curl/CurlOption.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <stdexcept>

namespace kel::http::test {
namespace {

using testing::HasSubstr;
using testing::ThrowsMessage;

TEST(CurlOptionTest, AnOptionThatIsTakenIsNoReasonToThrow) {
    const std::unique_ptr<CURL, void (*)(CURL*)> easy(curl_easy_init(), &curl_easy_cleanup);
    EXPECT_NO_THROW(setOption(easy.get(), CURLOPT_URL, "http://localhost"));
    EXPECT_NO_THROW(requireCall(CURLE_OK, "the form"));
}

TEST(CurlOptionTest, AnOptionThatIsRefusedIsToldByItsNumber) {
    const std::unique_ptr<CURL, void (*)(CURL*)> easy(curl_easy_init(), &curl_easy_cleanup);
    EXPECT_THAT([&] { setOption(easy.get(), CURLOPT_HTTP_VERSION, 4711L); },
                ThrowsMessage<std::runtime_error>(HasSubstr("option 84 ")));
}

TEST(CurlOptionTest, ACallThatIsRefusedIsNamedWithItsReason) {
    EXPECT_THAT([] { requireCall(CURLE_BAD_FUNCTION_ARGUMENT, "a part of the form"); },
                ThrowsMessage<std::runtime_error>(HasSubstr("a part of the form: ")));
}

TEST(CurlOptionTest, WantOfMemoryIsToldAsSuch) {
    EXPECT_THROW(refuseOption(CURLOPT_URL, CURLE_OUT_OF_MEMORY), std::bad_alloc);
    EXPECT_THROW(requireCall(CURLE_OUT_OF_MEMORY, "the form"), std::bad_alloc);
}

}  // namespace
}  // namespace kel::http::test
