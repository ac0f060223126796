// SPDX-License-Identifier: MIT
#include <curl/curl.h>
#include <gmock/gmock.h>

#include "fixture/ClientTest.h"
#include "fixture/LogCapture.h"
#include "fixture/TestDevice.h"
#include "fixture/Verifiers.h"
#include "support/NginxServer.h"
#include "support/TestCertificates.h"

namespace kel::http::test {
namespace {

enum class Verdict { trusted, refused };

// What a server presents, whom the client trusts, and what comes of it.
struct Chain {
    std::string name;
    CertificateWish wish;
    enum class Trust { authority, intermediate, server, somebody_else } trust = Trust::authority;
    bool partial_chain = false;
    Verdict verdict = Verdict::refused;
    // What the log has about it; callers are told no details.
    std::string detail;
};

void PrintTo(const Chain& chain, std::ostream* stream) {
    *stream << chain.name;
}

CertificateWish valid() {
    return {};
}

CertificateWish between(int first_day, int last_day) {
    CertificateWish wish;
    wish.valid_from_day = first_day;
    wish.valid_to_day = last_day;
    return wish;
}

CertificateWish ofHost(const std::string& alt_names) {
    CertificateWish wish;
    wish.subject_alt_names = alt_names;
    return wish;
}

CertificateWish from(Issuer issuer, bool with_chain = true) {
    CertificateWish wish;
    wish.issuer = issuer;
    wish.with_chain = with_chain;
    return wish;
}

std::vector<Chain> chains() {
    using Trust = Chain::Trust;
    return {
        {"Valid", valid(), Trust::authority, false, Verdict::trusted, {}},
        {"ValidWithPartialChain", valid(), Trust::authority, true, Verdict::trusted, {}},
        {"UnknownRoot", valid(), Trust::somebody_else, false, Verdict::refused, "unable to get local issuer"},
        {"UnknownRootWithPartialChain", valid(), Trust::somebody_else, true, Verdict::refused, "unable to get local"},
        {"SelfSigned", from(Issuer::itself), Trust::authority, false, Verdict::refused, "signed certificate"},
        {"SelfSignedAndTrusted", from(Issuer::itself), Trust::server, false, Verdict::trusted, {}},
        {"Expired", between(-3, -2), Trust::authority, false, Verdict::refused, "certificate has expired"},
        {"ExpiredAndTrusted", between(-3, -2), Trust::server, true, Verdict::refused, "certificate has expired"},
        {"NotYetValid", between(2, 3), Trust::authority, false, Verdict::refused, "certificate is not yet valid"},
        {"WrongHost", ofHost("DNS:other.example,IP:127.0.0.2"), Trust::authority, false, Verdict::refused,
         "matches target host name '127.0.0.1'"},
        {"Intermediate", from(Issuer::intermediate), Trust::authority, false, Verdict::trusted, {}},
        {"MissingIntermediate", from(Issuer::intermediate, false), Trust::authority, false, Verdict::refused,
         "unable to get local issuer"},
        {"MissingIntermediateWithPartialChain", from(Issuer::intermediate, false), Trust::authority, true,
         Verdict::refused, "unable to get local issuer"},
        {"TrustInTheIntermediateWithPartialChain",
         from(Issuer::intermediate),
         Trust::intermediate,
         true,
         Verdict::trusted,
         {}},
        {"TrustInTheIntermediateThatIsMissing",
         from(Issuer::intermediate, false),
         Trust::intermediate,
         true,
         Verdict::trusted,
         {}},
        {"TrustInTheServerWithPartialChain", valid(), Trust::server, true, Verdict::trusted, {}},
    };
}

// A device with an identity, and servers of all kinds.
class ClientTlsTest : public ClientTest {
 protected:
    static NginxServer::Options serving(const CertificateFiles& files, const std::string& directives = {}) {
        NginxServer::Options options;
        options.tls = true;
        options.certificate_file = files.certificate_file;
        options.key_file = files.key_file;
        options.directives = directives;
        return options;
    }

    static RequestConfig to(const NginxServer& nginx, const std::string& path = "/status/200") {
        RequestConfig config;
        config.url = nginx.tlsUrl(path);
        config.ca_file = TestCertificates::shared().caFile();
        return config;
    }

    void expectRefusal(const RequestConfig& config) {
        const Recorder::Outcome outcome = fetch(config);
        ASSERT_TRUE(outcome.error);
        EXPECT_EQ(outcome.error->failure, ClientFailure::Other);
        EXPECT_EQ(outcome.error->message, curl_easy_strerror(CURLE_PEER_FAILED_VERIFICATION));
    }

    void expectResponse(const RequestConfig& config) {
        const Recorder::Outcome outcome = fetch(config);
        ASSERT_TRUE(outcome.response) << outcome.error->message;
        EXPECT_EQ(outcome.response->status, 200);
    }

    const TestHost host{withTestDevice};
};

class ClientTlsChainTest : public ClientTlsTest, public testing::WithParamInterface<Chain> {
 protected:
    std::string trusted() const {
        switch (GetParam().trust) {
            case Chain::Trust::authority:
                return TestCertificates::shared().caFile();
            case Chain::Trust::intermediate:
                return TestCertificates::shared().intermediateFile();
            case Chain::Trust::server:
                return files.certificate_file;
            case Chain::Trust::somebody_else:
                break;
        }
        return others.caFile();
    }

    const TestCertificates others;
    const CertificateFiles files = TestCertificates::shared().issue(GetParam().name, GetParam().wish);
    const NginxServer nginx{serving(files)};
};

INSTANTIATE_TEST_SUITE_P(Chains, ClientTlsChainTest, testing::ValuesIn(chains()),
                         [](const auto& chain) { return chain.param.name; });

TEST_P(ClientTlsChainTest, ServerIsVerified) {
    const LogCapture log("HttpClient", 1);
    RequestConfig config = to(nginx);
    config.ca_file = trusted();
    config.tls_partial_chain = GetParam().partial_chain;
    if (GetParam().verdict == Verdict::trusted) {
        expectResponse(config);
        return;
    }
    expectRefusal(config);
    EXPECT_TRUE(log.contains("Got unexpected Curl error code: 60"));
    EXPECT_TRUE(log.contains("Failed to connect to '127.0.0.1:" + std::to_string(nginx.tlsPort()) + "': SSL"));
    EXPECT_TRUE(log.contains(GetParam().detail)) << log.all();
}

TEST_P(ClientTlsChainTest, ServerIsAcceptedWithoutVerification) {
    RequestConfig config = to(nginx);
    config.ca_file = trusted();
    config.tls_partial_chain = GetParam().partial_chain;
    config.tls_verify = false;
    expectResponse(config);
}

// libcurl may allow partial chains of its own accord, so that nothing is known of the outcome but that there is one.
TEST_F(ClientTlsTest, TrustInAnIntermediateAloneHasOneOutcome) {
    const NginxServer nginx(serving(TestCertificates::shared().issue("intermediate_only", from(Issuer::intermediate))));
    RequestConfig config = to(nginx);
    config.ca_file = TestCertificates::shared().intermediateFile();
    const Recorder::Outcome outcome = fetch(config);
    EXPECT_NE(static_cast<bool>(outcome.response), static_cast<bool>(outcome.error));
    if (outcome.error) {
        EXPECT_EQ(outcome.error->message, curl_easy_strerror(CURLE_PEER_FAILED_VERIFICATION));
    }
}

TEST_F(ClientTlsTest, VerifierOverrulesEveryFinding) {
    const Verifiers verifiers;
    const NginxServer nginx(serving(TestCertificates::shared().issue("expired", between(-3, -2))));
    RequestConfig config = to(nginx);
    config.verifier = Verifiers::lax;
    config.verifier_data = "expired";
    expectResponse(config);
    EXPECT_GT(verifiers.texts().count("expired"), 0U);
    config.verifier = Verifiers::neutral;
    expectRefusal(config);
    config.verifier = nullptr;
    expectRefusal(config);
}

TEST_F(ClientTlsTest, BundleOfTheHostDecidesWhenNoFileIsNamed) {
    const NginxServer nginx(serving(TestCertificates::shared().server()));
    RequestConfig config = to(nginx);
    config.ca_file.reset();
    expectRefusal(config);
    {
        const TestHost trusting(
            [](ko::host::Settings& settings) { settings.ca_bundles["default"] = TestCertificates::shared().caFile(); });
        expectResponse(config);
    }
    const TestHost without([](ko::host::Settings& settings) { settings.ca_bundles.clear(); });
    expectRefusal(config);
}

}  // namespace
}  // namespace kel::http::test
