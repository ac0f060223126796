// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

#include <algorithm>
#include <memory>
#include <stdexcept>

#include "fixture/ClientTest.h"
#include "fixture/LogCapture.h"
#include "fixture/TestDevice.h"
#include "fixture/Verifiers.h"
#include "support/Files.h"
#include "support/NginxServer.h"
#include "support/TestCertificates.h"

namespace kel::http::test {
namespace {

using testing::HasSubstr;

// The first of all pieces of `secret` with this length that stands in `text`; empty if none does.
std::string leaked(const std::string& text, const std::string& secret, std::size_t length) {
    for (std::size_t at = 0; at + length <= secret.size(); at += length / 2) {
        const std::string piece = secret.substr(at, length);
        if (text.find(piece) != std::string::npos) return piece;
    }
    return {};
}

std::string lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

std::string hexOf(const std::string& bytes) {
    constexpr const char* digits = "0123456789abcdef";
    std::string hex;
    for (const char byte : bytes) {
        hex += digits[static_cast<unsigned char>(byte) >> 4U];
        hex += digits[static_cast<unsigned char>(byte) & 0xFU];
    }
    return hex;
}

std::string base64Of(const std::string& bytes) {
    std::string text(4 * (bytes.size() / 3 + 1) + 1, '\0');
    const int size =
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                        reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
    text.resize(static_cast<std::size_t>(size));
    return text;
}

// A key in DER, without the first bytes, which are the same in every key or public.
struct Secret {
    std::string name;
    std::string der;
};

void expectKept(const std::string& log, const Secret& secret) {
    EXPECT_EQ(leaked(log, secret.der, 8), "") << secret.name;
    EXPECT_EQ(leaked(lowered(log), hexOf(secret.der), 16), "") << secret.name;
    // A line of PEM begins at any third byte.
    for (std::size_t begin = 0; begin < 3; ++begin) {
        EXPECT_EQ(leaked(log, base64Of(secret.der.substr(begin)), 12), "") << secret.name;
    }
}

Secret deviceKey() {
    // The version, the modulus and the exponent stand in the certificate as well.
    constexpr std::size_t public_bytes = 4 + 3 + 4 + 257 + 5;
    return {"device", readWholeFile(TestCertificates::shared().device() + "/device_key.der").substr(public_bytes)};
}

Secret fileKey(const std::string& path) {
    const std::string pem = readWholeFile(path);
    const std::unique_ptr<BIO, int (*)(BIO*)> memory(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())),
                                                     BIO_free);
    unsigned char* bytes = nullptr;
    long size = 0;
    char* name = nullptr;
    char* header = nullptr;
    if (PEM_read_bio(memory.get(), &name, &header, &bytes, &size) != 1) throw std::runtime_error("no PEM: " + path);
    // 36 bytes name the curve; the number itself has 32, the point behind it is public.
    const std::string der(reinterpret_cast<const char*>(bytes) + 36, 32);
    OPENSSL_free(name);
    OPENSSL_free(header);
    OPENSSL_free(bytes);
    return {"file", der};
}

class ClientTlsSecrecyTest : public ClientTest, public testing::WithParamInterface<int> {
 protected:
    static NginxServer::Options overTls() {
        NginxServer::Options options;
        options.tls = true;
        options.directives = "ssl_verify_client optional_no_ca; location = /who { return 200 '$ssl_client_s_dn'; }";
        return options;
    }
    RequestConfig device() const {
        RequestConfig config;
        config.url = nginx.tlsUrl("/who");
        config.ca_file = TestCertificates::shared().caFile();
        config.reset_state = true;
        return config;
    }
    RequestConfig files() const {
        RequestConfig config = device();
        config.own_cert = user.certificate_file;
        config.own_pkey = user.key_file;
        return config;
    }

    const TestHost host{withTestDevice};
    const NginxServer nginx{overTls()};
    const CertificateFiles user = TestCertificates::shared().issue("user", {});
};

INSTANTIATE_TEST_SUITE_P(Levels, ClientTlsSecrecyTest, testing::Range(1, 10));

TEST_P(ClientTlsSecrecyTest, NoByteOfAKeyIsLogged) {
    const LogCapture log(GetParam());
    useLogger("TestClient");
    LogFilter all;
    all.mode = LogFilter::Mode::all_payload;
    RequestConfig verified = device();
    verified.verifier = Verifiers::neutral;
    RequestConfig broken = files();
    broken.own_pkey = TestCertificates::shared().server().key_file;
    std::vector<Client::RequestId> ids;
    for (int i = 0; i < 4; ++i) {
        for (const RequestConfig& config : {device(), files(), verified, broken}) ids.push_back(start(config, all));
    }
    for (const auto id : ids) recorder.await(id);
    drain();
    const std::string text = log.all();
    EXPECT_NE(text, "");
    expectKept(text, deviceKey());
    expectKept(text, fileKey(user.key_file));
    expectKept(text, fileKey(*broken.own_pkey));
}

TEST_P(ClientTlsSecrecyTest, KeyThatIsOfNoUseIsNotLoggedEither) {
    const TemporaryDirectory store;
    const std::string key = readWholeFile(TestCertificates::shared().device() + "/device_key.der");
    writeWholeFile(store.path("device_cert.der"),
                   readWholeFile(TestCertificates::shared().device() + "/device_cert.der"));
    const TestHost other([&store](ko::host::Settings& settings) { settings.secure_store_directory = store.path(); });
    const LogCapture log(GetParam());
    // One that breaks off, and one in the place of the certificate.
    writeWholeFile(store.path("device_key.der"), key.substr(0, 700));
    EXPECT_TRUE(fetch(device()).error);
    writeWholeFile(store.path("device_cert.der"), key);
    EXPECT_TRUE(fetch(device()).error);
    EXPECT_TRUE(log.contains("setMicToCtx: "));
    expectKept(log.all(), deviceKey());
}

// The search itself finds what it is to find.
TEST(KeySearchTest, PiecesAreFoundInEveryForm) {
    const Secret secret = deviceKey();
    const std::string part = secret.der.substr(40, 100);
    EXPECT_NE(leaked("log " + part + " log", secret.der, 8), "");
    EXPECT_NE(leaked("log " + hexOf(part) + " log", hexOf(secret.der), 16), "");
    EXPECT_NE(leaked("log " + base64Of(secret.der.substr(30, 60)) + " log", base64Of(secret.der), 12), "");
    EXPECT_THAT(readWholeFile(TestCertificates::shared().server().key_file), HasSubstr("BEGIN PRIVATE KEY"));
}

}  // namespace
}  // namespace kel::http::test
