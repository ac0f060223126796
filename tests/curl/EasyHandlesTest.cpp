// SPDX-License-Identifier: MIT
#include "kel-http/curl/EasyHandles.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kel-http/RequestConfig.h"
#include "kel-http/curl/CurlLibrary.h"
#include "support/ScriptedServer.h"

namespace kel::http::test {
namespace {

constexpr unsigned int Libcurl_7_76 = 0x074c00;
constexpr unsigned int Libcurl_7_77 = 0x074d00;

class EasyHandlesTest : public testing::Test {
 private:
    CurlLibrary library;
};

TEST_F(EasyHandlesTest, AHandleThatIsGivenBackIsTakenNext) {
    EasyHandles handles(Libcurl_7_77);
    EasyHandle first = handles.take(true);
    void* const known = first.get();
    handles.giveBack(std::move(first));
    EXPECT_EQ(handles.size(), 1U);
    const EasyHandle own = handles.take(false);
    EXPECT_NE(own.get(), known);
    const EasyHandle next = handles.take(true);
    EXPECT_EQ(next.get(), known);
    EXPECT_EQ(handles.size(), 0U);
}

TEST_F(EasyHandlesTest, SoManyAreKeptAndNoMore) {
    EasyHandles handles(Libcurl_7_77);
    std::vector<EasyHandle> taken;
    for (std::size_t i = 0; i <= EasyHandles::most_kept; ++i) taken.push_back(handles.take(true));
    for (EasyHandle& easy : taken) handles.giveBack(std::move(easy));
    EXPECT_EQ(handles.size(), EasyHandles::most_kept);
    handles.clear();
    EXPECT_EQ(handles.size(), 0U);
    handles.clear();
}

TEST_F(EasyHandlesTest, ALibcurlThatDoesNotForgetCookiesHasFreshHandlesOnly) {
    EasyHandles handles(Libcurl_7_76);
    handles.giveBack(handles.take(true));
    EXPECT_EQ(handles.size(), 0U);
}

TEST_F(EasyHandlesTest, CookiesAndWhatIsSharedDoNotStay) {
    EasyHandles handles;
    CURLSH* const share = curl_share_init();
    curl_share_setopt(share, CURLSHOPT_SHARE, CURL_LOCK_DATA_COOKIE);
    EasyHandle sharing = handles.take(true);
    curl_easy_setopt(sharing.get(), CURLOPT_SHARE, share);
    curl_easy_setopt(sharing.get(), CURLOPT_COOKIEFILE, "");
    curl_easy_setopt(sharing.get(), CURLOPT_COOKIELIST, "host.test\tFALSE\t/\tFALSE\t0\tname\tvalue");
    EasyHandle lonely = handles.take(true);
    curl_easy_setopt(lonely.get(), CURLOPT_COOKIELIST, "host.test\tFALSE\t/\tFALSE\t0\tname\tvalue");
    handles.giveBack(std::move(sharing));
    handles.giveBack(std::move(lonely));
    EXPECT_EQ(handles.size(), 2U);
    for (int i = 0; i < 2; ++i) {
        const EasyHandle easy = handles.take(true);
        curl_slist* cookies = nullptr;
        curl_easy_getinfo(easy.get(), CURLINFO_COOKIELIST, &cookies);
        EXPECT_EQ(cookies, nullptr);
        curl_slist_free_all(cookies);
    }
    // The share has them still, and nobody uses it.
    const EasyHandle reader(curl_easy_init());
    curl_easy_setopt(reader.get(), CURLOPT_SHARE, share);
    curl_slist* cookies = nullptr;
    curl_easy_getinfo(reader.get(), CURLINFO_COOKIELIST, &cookies);
    EXPECT_NE(cookies, nullptr);
    curl_slist_free_all(cookies);
    curl_easy_setopt(reader.get(), CURLOPT_SHARE, nullptr);
    EXPECT_EQ(curl_share_cleanup(share), CURLSHE_OK);
}

std::size_t ignore(void* /*data*/, std::size_t size, std::size_t count, void* /*easy*/) {
    return size * count;
}

TEST_F(EasyHandlesTest, AHandleThatHoldsALongAnswersHeadIsFreed) {
    ScriptedServer server;
    EasyHandles handles;
    for (const std::size_t bytes : {EasyHandles::most_held_bytes / 2, EasyHandles::most_held_bytes}) {
        server.enqueue(Reply(200).header("X-Long", std::string(bytes, 'x')));
        EasyHandle easy = handles.take(true);
        curl_easy_setopt(easy.get(), CURLOPT_URL, server.url().c_str());
        curl_easy_setopt(easy.get(), CURLOPT_WRITEFUNCTION, &ignore);
        ASSERT_EQ(curl_easy_perform(easy.get()), CURLE_OK);
        handles.giveBack(std::move(easy));
        EXPECT_EQ(handles.size(), bytes == EasyHandles::most_held_bytes ? 0U : 1U);
    }
}

TEST_F(EasyHandlesTest, WhoAsksForAStateOfItsOwnHasAHandleOfItsOwn) {
    RequestConfig config;
    config.url = "https://host.test/";
    EXPECT_TRUE(EasyHandles::mayServeOthers(config));
    RequestConfig fresh = config;
    fresh.reset_state = true;
    RequestConfig verified = config;
    verified.verifier = [](int, x509_store_ctx_st*) { return 1; };
    RequestConfig partial = config;
    partial.tls_partial_chain = true;
    RequestConfig lengthy = config;
    lengthy.url.append(EasyHandles::most_held_bytes, 'x');
    RequestConfig named = config;
    named.headers["host"] = "other.test";
    RequestConfig resumed = config;
    resumed.resume = true;
    for (const RequestConfig& alone : {fresh, verified, partial, lengthy, named, resumed}) {
        EXPECT_FALSE(EasyHandles::mayServeOthers(alone));
    }
}

TEST(EasyHandlesOfAProgramTest, WhoseMemoryIsShortIsUnknownSoThatNoneIsKept) {
    curl_global_init(CURL_GLOBAL_ALL);
    {
        const CurlLibrary library;
        EasyHandles handles;
        handles.giveBack(handles.take(true));
        EXPECT_EQ(handles.size(), 0U);
    }
    curl_global_cleanup();
}

}  // namespace
}  // namespace kel::http::test
