// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <nlohmann/json.hpp>
#include <ostream>

#include "ToolProcess.h"
#include "support/Files.h"
#include "support/NginxServer.h"
#include "support/OpensslServer.h"
#include "support/TestCertificates.h"

namespace kel::http::test {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

const TestCertificates& certificates() {
    return TestCertificates::shared();
}

ToolResult getAsGiven(const std::string& url, const std::vector<std::string>& options) {
    std::vector<std::string> arguments = {"get", url, "--timeout", "30s"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return runTool(arguments);
}

// A device's certificate spares the time to make one up.
ToolResult get(const std::string& url, std::vector<std::string> options = {}) {
    const auto has = [&](const char* option) {
        return std::find(options.begin(), options.end(), option) != options.end();
    };
    if (!has("--cert") && !has("--device-cert-dir")) {
        options.insert(options.end(), {"--device-cert-dir", certificates().device()});
    }
    return getAsGiven(url, options);
}

std::vector<std::string> trusting(std::vector<std::string> more) {
    more.insert(more.end(), {"--ca-file", certificates().caFile()});
    return more;
}

std::string today() {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    gmtime_r(&now, &parts);
    std::array<char, 16> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%d", &parts);
    return text.data();
}

struct BadCertificate {
    const char* name;
    CertificateWish wish;
    std::string advice;
};

void PrintTo(const BadCertificate& bad, std::ostream* stream) {
    *stream << bad.name;
}

CertificateWish valid(int from_day, int to_day) {
    CertificateWish wish;
    wish.valid_from_day = from_day;
    wish.valid_to_day = to_day;
    return wish;
}

CertificateWish forHosts(const std::string& names) {
    CertificateWish wish;
    wish.common_name = "elsewhere.example";
    wish.subject_alt_names = names;
    return wish;
}

CertificateWish from(Issuer issuer) {
    CertificateWish wish;
    wish.issuer = issuer;
    wish.with_chain = false;
    return wish;
}

class ToolServerCertificateTest : public testing::TestWithParam<BadCertificate> {};

TEST_P(ToolServerCertificateTest, IsExplainedToAPersonInTwoLines) {
    const CertificateFiles files = certificates().issue(GetParam().name, GetParam().wish);
    NginxServer::Options options;
    options.tls = true;
    options.certificate_file = files.certificate_file;
    options.key_file = files.key_file;
    const NginxServer server(options);
    const ToolResult result = get(server.tlsUrl(), trusting({"--device-cert-dir", certificates().device()}));
    EXPECT_EQ(result.exit_code, 3);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, AllOf(StartsWith("kel-http: GET " + server.tlsUrl() + ": SSL"), EndsWith(")\n")));
    EXPECT_THAT(result.err, HasSubstr(GetParam().advice));
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 2);
}

INSTANTIATE_TEST_SUITE_P(
    TlsAdvice, ToolServerCertificateTest,
    testing::Values(BadCertificate{"Expired", valid(-3, -2), "has expired"},
                    BadCertificate{"NotYetValid", valid(2, 3), "clock of this device is probably wrong"},
                    BadCertificate{"WrongHost", forHosts("DNS:elsewhere.example"), "for another host"},
                    BadCertificate{"WrongHostInItsNameAlone", forHosts(""), "for another host"},
                    BadCertificate{"SelfSigned", from(Issuer::itself), "signed its certificate itself"},
                    BadCertificate{"MissingIntermediate", from(Issuer::intermediate),
                                   "does not send the intermediate certificate"}),
    [](const auto& instance) { return instance.param.name; });

TEST(ToolTlsAdviceTest, DateOfThisDeviceIsToldWhereItsClockMayBeWrong) {
    for (const CertificateWish& wish : {valid(-3, -2), valid(2, 3)}) {
        const std::string before = today();
        const CertificateFiles files = certificates().issue("date", wish);
        const OpensslServer server({"-cert", files.certificate_file, "-key", files.key_file});
        EXPECT_THAT(get(server.url(), trusting({})).err, AnyOf(HasSubstr(before), HasSubstr(today())));
    }
}

TEST(ToolTlsAdviceTest, UnknownAuthorityAsksForTheOptionsThatNameIt) {
    const OpensslServer silent({});
    const OpensslServer telling({"-CAfile", certificates().caFile(), "-cert_chain", certificates().caFile()});
    for (const OpensslServer* const server : {&silent, &telling}) {
        EXPECT_THAT(get(server->url()).err,
                    AllOf(HasSubstr("nobody trusted here"), HasSubstr("--ca-file"), HasSubstr("--ca-dir")));
    }
}

TEST(ToolTlsAdviceTest, ServerThatIsTooOldIsNamedWithTheVersionThatIsAccepted) {
    for (const char* const version : {"-tls1", "-tls1_1"}) {
        const OpensslServer server({version, "-cipher", "ALL:@SECLEVEL=0"});
        EXPECT_THAT(get(server.url(), trusting({})).err, HasSubstr("1.1 or newer")) << version;
        EXPECT_THAT(get(server.url(), trusting({"--min-tls", "1.0"})).err, HasSubstr("1.0 or newer")) << version;
    }
}

TEST(ToolTlsAdviceTest, PortThatSpeaksNoTlsIsTold) {
    const NginxServer server;
    const ToolResult result = get("https://127.0.0.1:" + std::to_string(server.port()));
    EXPECT_EQ(result.exit_code, 3);
    EXPECT_THAT(result.err, HasSubstr("does not speak TLS"));
}

class ToolDemandingServerTest : public testing::TestWithParam<const char*> {
 protected:
    // Breaks the connection off when it does not like the client's certificate.
    const OpensslServer server{
        {GetParam(), "-Verify", "1", "-verify_return_error", "-CAfile", certificates().caFile()}};
};

TEST_P(ToolDemandingServerTest, AsksForACertificate) {
    EXPECT_THAT(getAsGiven(server.url(), trusting({})).err,
                AllOf(HasSubstr("demands a certificate of this client"), HasSubstr("--cert and --key"),
                      HasSubstr("--device-cert-dir")));
}

TEST_P(ToolDemandingServerTest, NamesTheCertificateThatIsNotAccepted) {
    const CertificateFiles files = certificates().issue("my own", from(Issuer::itself));
    EXPECT_THAT(get(server.url(), trusting({"--cert", files.certificate_file, "--key", files.key_file})).err,
                HasSubstr("does not accept the certificate in '" + files.certificate_file + "'"));
    const std::string device = certificates().issueDevice("old device", valid(-3, -2));
    EXPECT_THAT(get(server.url(), trusting({"--device-cert-dir", device})).err,
                HasSubstr("does not accept the certificate in '" + device + "/device_cert.der'"));
}

TEST_P(ToolDemandingServerTest, TakesACertificateThatItTrusts) {
    EXPECT_EQ(get(server.url(), trusting({"--device-cert-dir", certificates().device()})).exit_code, 0);
}

INSTANTIATE_TEST_SUITE_P(TlsAdvice, ToolDemandingServerTest, testing::Values("-tls1_2", "-tls1_3"),
                         [](const auto& instance) { return "Over" + std::string(instance.param).substr(1); });

// Local files that are there, but hold something else.
class ToolUnusableFileTest : public testing::Test {
 protected:
    std::string file(const std::string& name, const std::string& bytes) {
        writeWholeFile(directory.path(name), bytes);
        return directory.path(name);
    }

    std::string errorOf(const std::vector<std::string>& options) {
        const ToolResult result = get(server.url(), options);
        EXPECT_EQ(result.exit_code, 3);
        return result.err;
    }

    const OpensslServer server{{}};
    const CertificateFiles& me = certificates().server();
    const TemporaryDirectory directory;
};

TEST_F(ToolUnusableFileTest, CertificateOrKeyOfThisClientIsTold) {
    const std::string garbage = file("garbage", "no PEM");
    EXPECT_THAT(errorOf(trusting({"--cert", garbage, "--key", me.key_file})), HasSubstr("--cert holds no certificate"));
    const std::string no_key = "--key holds no private key";
    EXPECT_THAT(errorOf(trusting({"--cert", me.certificate_file, "--key", garbage})), HasSubstr(no_key));
    const std::string other_key = certificates().issue("other key", {}).key_file;
    EXPECT_THAT(errorOf(trusting({"--cert", me.certificate_file, "--key", other_key})), HasSubstr(no_key));
}

TEST_F(ToolUnusableFileTest, FileOfAuthoritiesIsTold) {
    const std::string garbage = file("garbage", "no PEM");
    EXPECT_THAT(errorOf({"--ca-file", garbage}), HasSubstr("'" + garbage + "' holds no certificates"));
}

TEST_F(ToolUnusableFileTest, CertificateOfTheDeviceIsTold) {
    const std::string certificate = readWholeFile(certificates().device() + "/device_cert.der");
    const std::string told = "the device's certificate in '" + directory.path() + "' ";
    file("device_key.der", "no DER");
    file("device_cert.der", "");
    EXPECT_THAT(errorOf(trusting({"--device-cert-dir", directory.path()})), HasSubstr(told + "is missing"));
    file("device_cert.der", "no DER");
    EXPECT_THAT(errorOf(trusting({"--device-cert-dir", directory.path()})), HasSubstr(told + "can not be used"));
    file("device_cert.der", certificate);
    EXPECT_THAT(errorOf(trusting({"--device-cert-dir", directory.path()})), HasSubstr(told + "can not be used"));
}

TEST(ToolTlsAdviceTest, JsonKeepsTheMessageAndAddsTheAdvice) {
    const OpensslServer server({});
    const ToolResult result = get(server.url(), {"--json"});
    const auto error = nlohmann::json::parse(result.out).at("error");
    EXPECT_EQ(error.at("name"), "Other");
    EXPECT_EQ(error.at("message"), "SSL peer certificate or SSH remote key was not OK");
    EXPECT_THAT(error.at("advice").get<std::string>(), HasSubstr("--ca-file"));
    EXPECT_THAT(result.err, HasSubstr(error.at("advice").get<std::string>()));
}

TEST(ToolTlsAdviceTest, LogIsPrintedOnlyWhenItIsAskedFor) {
    const OpensslServer server({});
    EXPECT_THAT(get(server.url()).err, Not(HasSubstr("Failed to connect to")));
    EXPECT_THAT(get(server.url(), {"-v"}).err,
                AllOf(HasSubstr("Failed to connect to '127.0.0.1:"), HasSubstr("nobody trusted here")));
}

}  // namespace
}  // namespace kel::http::test
