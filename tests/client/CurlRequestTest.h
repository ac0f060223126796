// SPDX-License-Identifier: MIT
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "fixture/ClientTest.h"
#include "kel-http/client/CurlRequest.h"
#include "support/TemporaryDirectory.h"

namespace kel::http::test {

// A client without an engine: it knows its requests and calls back for them, but the test itself calls the hooks of a
// request, as the engine would.
class CurlRequestTest : public testing::Test {
 protected:
    using CurlRequest = ClientImpl::CurlRequest;
    using CurlRequestPtr = std::shared_ptr<CurlRequest>;

    CurlRequestTest();
    ~CurlRequestTest() override;

    CurlRequestPtr plainRequest(const RequestConfig& config = {});
    CurlRequestPtr download(const std::string& path, const RequestConfig& config = {});

    // The header block of an answer: its status line, `lines`, the blank line.
    static void receiveHead(CurlRequest& request, const std::vector<std::string>& lines = {});
    // The end of a transfer with this status.
    static void complete(CurlRequest& request, unsigned int status = 200);
    static void fail(CurlRequest& request, Failure failure, const std::string& text = {}, unsigned int status = 0);

    // What the callbacks of the newest request were told; there has to be no more than one outcome.
    Recorder::Outcome outcome();
    ResponseData response();
    ErrorData error();
    std::vector<ProgressData> progress();

    RecordingExecutor executor;
    Recorder recorder;
    TemporaryDirectory directory;
    Client::RequestId id = NoRequestId;

 private:
    std::shared_ptr<ClientImpl> client_;
    std::vector<Client::RequestId> ids_;
};

}  // namespace kel::http::test
