// SPDX-License-Identifier: MIT
#include "CurlRequestTest.h"

namespace kel::http::test {

CurlRequestTest::CurlRequestTest()
    : client_(std::make_shared<ClientImpl>(executor, *logging::getLogger("TestClient", 0))) {}

// What has not ended keeps its client, and is kept by it.
CurlRequestTest::~CurlRequestTest() {
    executor.run([this] {
        for (const Client::RequestId known : ids_) client_->cancel_request(known);
        client_.reset();
    });
}

CurlRequestTest::CurlRequestPtr CurlRequestTest::plainRequest(const RequestConfig& config) {
    executor.run([&] { id = client_->start_request(config, {}, recorder.onResponse(), recorder.onError()); });
    ids_.push_back(id);
    return std::make_shared<CurlRequest>(client_, id, config);
}

CurlRequestTest::CurlRequestPtr CurlRequestTest::download(const std::string& path, const RequestConfig& config) {
    executor.run([&] {
        id =
            client_->start_download(config, path, {}, recorder.onResponse(), recorder.onError(), recorder.onProgress());
    });
    ids_.push_back(id);
    return std::make_shared<CurlRequest>(client_, id, config, path);
}

void CurlRequestTest::receiveHead(CurlRequest& request, const std::vector<std::string>& lines) {
    request.notifyHeader("HTTP/1.1 200 OK\r\n");
    for (const std::string& line : lines) request.notifyHeader(line);
    request.notifyHeader("\r\n");
}

void CurlRequestTest::complete(CurlRequest& request, unsigned int status) {
    request.setResponseCode(status);
    request.notifyDataEnd();
}

void CurlRequestTest::fail(CurlRequest& request, Failure failure, const std::string& text, unsigned int status) {
    request.setResponseCode(status);
    request.notifyFailure(failure, text);
}

Recorder::Outcome CurlRequestTest::outcome() {
    const Recorder::Outcome told = recorder.await(id);
    executor.run([] {});
    EXPECT_EQ(recorder.outcomes().size(), 1U);
    return told;
}

ResponseData CurlRequestTest::response() {
    const Recorder::Outcome told = outcome();
    if (told.response) return *told.response;
    ADD_FAILURE() << "an error: " << told.error->message;
    return {0, {}, {}};
}

ErrorData CurlRequestTest::error() {
    const Recorder::Outcome told = outcome();
    if (told.error) return *told.error;
    ADD_FAILURE() << "a response: " << told.response->status;
    return {ClientFailure::Other, "no error"};
}

std::vector<ProgressData> CurlRequestTest::progress() {
    executor.run([] {});
    return recorder.progress(id);
}

}  // namespace kel::http::test
