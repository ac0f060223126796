// SPDX-License-Identifier: MIT
// Calls of libcurl that have no memory: the request is not sent in part or to others, it fails, and the engine serves on.
#include <unistd.h>

#include "curl/Interposed.h"
#include "fixture/EngineTest.h"
#include "support/ClosedPort.h"
#include "support/Files.h"
#include "support/TemporaryDirectory.h"

namespace kel::http::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class InterposedMemoryTest : public EngineTest {
 protected:
    InterposedMemoryTest() {
        server.onRequest([](const ReceivedRequest&) { return Reply(200); });
        startEngine();
    }
    ~InterposedMemoryTest() override { stopEngine(); }

    void expectRefused(const RequestConfig& config, const std::string& call) {
        interposed.emplace();
        interposed->fail(call);
        const auto request = run(config);
        request->outcome.awaitCount(1);
        EXPECT_THAT(request->outcome.events(), ElementsAre("failure 2: Out of memory")) << call;
        drain();
        EXPECT_EQ(server.connectionCount(), 0U) << call;
        interposed.reset();
    }

    RequestConfig with(Method method, const std::string& body) const {
        RequestConfig config = get();
        config.method = method;
        config.body = body;
        return config;
    }

    std::optional<Interposed> interposed;
    TemporaryDirectory directory;
};

// libcurl would read from standard input what it has not been given.
TEST_F(InterposedMemoryTest, ABodyThatIsNotTakenIsNotReplacedByAnother) {
    for (const Method method : {Method::POST, Method::PATCH, Method::DELETE}) {
        expectRefused(with(method, "body"), "CURLOPT_COPYPOSTFIELDS");
    }
    expectRefused(with(Method::DELETE, ""), "CURLOPT_CUSTOMREQUEST");
}

TEST_F(InterposedMemoryTest, AFormIsSentAsAWholeOrNotAtAll) {
    writeWholeFile(directory.path("file"), "content");
    RequestConfig config = with(Method::POST, "");
    config.mime_parts = {{"text", "data", "", "text/css"}, {"file", "", directory.path("file"), ""}};
    for (const char* const call : {"curl_mime_init", "curl_mime_addpart", "curl_mime_name", "curl_mime_data",
                                   "curl_mime_data_cb", "curl_mime_filename", "curl_mime_type", "CURLOPT_MIMEPOST"}) {
        expectRefused(config, call);
    }
}

TEST_F(InterposedMemoryTest, NothingGoesPastItsProxy) {
    const ClosedPort proxy;
    engine().setProxyConfig(Engine::ProxyConfigMode::Manual, proxy.url(), "user", "password");
    for (const char* const call : {"CURLOPT_PROXY", "CURLOPT_PROXYUSERPWD", "CURLOPT_NOPROXY"}) {
        expectRefused(get(), call);
    }
}

TEST_F(InterposedMemoryTest, NothingGoesWithoutItsHeadersAndCredentials) {
    RequestConfig config = get();
    config.user = "user";
    config.password = "password";
    for (const char* const call :
         {"CURLOPT_URL", "CURLOPT_HTTPHEADER", "CURLOPT_USERNAME", "CURLOPT_PASSWORD", "CURLOPT_HTTPAUTH"}) {
        expectRefused(config, call);
    }
}

TEST_F(InterposedMemoryTest, AHandleThatCanNotBeMadeOrAddedFailsItsRequest) {
    expectRefused(get(), "curl_easy_init");
    expectRefused(get(), "curl_multi_add_handle");
}

TEST(InterposedEngineTest, AnEngineThatCanNotBeMadeThrowsAndIsNotThere) {
    for (const char* const call : {"curl_global_init", "curl_multi_init", "curl_share_init"}) {
        Interposed interposed;
        interposed.fail(call);
        const auto make = [] { Engine engine([](const std::function<void()>& completion) { completion(); }); };
        EXPECT_THROW(make(), std::bad_alloc) << call;
        EXPECT_FALSE(Engine::hasEngine()) << call;
    }
    const Engine engine([](const std::function<void()>& completion) { completion(); });
    EXPECT_TRUE(Engine::hasEngine());
}

// The server has let go of the connection while it was kept for us; libcurl begins anew on another one.
TEST_F(InterposedMemoryTest, ABodyBeginsAnewWhenItsRequestDoes) {
    writeWholeFile(directory.path("file"), "body");
    for (const auto& [from_file, libcurl_is_old] :
         {std::pair(false, false), {true, false}, {false, true}, {true, true}}) {
        run(get())->outcome.await("end");
        drain();
        interposed.emplace();
#if LIBCURL_VERSION_NUM >= 0x075000
        if (libcurl_is_old) interposed->lack(CURLOPT_PREREQFUNCTION);
#endif
        interposed->resetAtSend(2);  // libcurl has read the body by then, and sent none of it
        RequestConfig config = with(Method::PUT, from_file ? directory.path("file") : "body");
        config.body_is_file = from_file;
        const auto request = run(config);
        request->outcome.awaitCount(1);
        EXPECT_THAT(request->outcome.events(), ElementsAre("end"));
        EXPECT_EQ(server.requests().back().method, "PUT");
        EXPECT_EQ(server.requests().back().body, "body");
        interposed.reset();
    }
}

}  // namespace
}  // namespace kel::http::test
