// SPDX-License-Identifier: MIT
#pragma once

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>
#include <mutex>
#include <string>

#include "TemporaryDirectory.h"

namespace kel::http::test {

// A certificate and its private key, as PEM files.
struct CertificateFiles {
    std::string certificate_file;
    std::string key_file;
};

enum class Issuer {
    authority,
    intermediate,  // which the authority has signed
    itself
};

// What is to stand in a certificate. The default suits a server on this machine.
struct CertificateWish {
    std::string common_name = "localhost";
    // As OpenSSL's configuration files have it.
    std::string subject_alt_names = "DNS:localhost,IP:127.0.0.1,IP:::1";
    // The days of its validity, counted from today.
    int valid_from_day = -1;
    int valid_to_day = 1;
    Issuer issuer = Issuer::authority;
    // Appends the intermediate's certificate to that of one it has signed, as a server ought to.
    bool with_chain = true;
};

// A certificate authority made for this run, an intermediate one and the certificates they have signed. All keys are EC
// P-256, those of devices RSA.
//
// Each certificate serves servers and clients alike.
//
// A second object is an authority that nobody of the first one's clients trusts.
//
// Threads: shared() is made once, by the first who asks; every function may be called from any thread.
// Errors:  std::runtime_error with OpenSSL's words.
class TestCertificates {
 public:
    TestCertificates();

    // Those of the process; their files go when it ends.
    static const TestCertificates& shared();

    // The authority's own certificate, to be trusted.
    const std::string& caFile() const { return ca_file_; }
    // The intermediate's, without the authority's.
    const std::string& intermediateFile() const { return intermediate_file_; }
    // A certificate for 127.0.0.1, ::1 and localhost.
    const CertificateFiles& server() const { return server_; }
    // The folder of a device called "test device", made for the first who asks: an RSA key takes its time.
    const std::string& device() const;

    // Signs one more, in files called after `name`, which live as long as this object.
    CertificateFiles issue(const std::string& name, const CertificateWish& wish) const;
    // Makes the identity of a device, signed by the authority, and returns the folder with its device_cert.der and
    // device_key.der, called after `name`.
    std::string issueDevice(const std::string& name, const CertificateWish& wish) const;

 private:
    using Key = std::unique_ptr<EVP_PKEY, void (*)(EVP_PKEY*)>;
    using Certificate = std::unique_ptr<X509, void (*)(X509*)>;

    static Certificate makeCertificate(const CertificateWish& wish, EVP_PKEY* key);
    Certificate sign(const CertificateWish& wish, EVP_PKEY* key) const;

    TemporaryDirectory directory_;
    Key ca_key_;
    Certificate ca_certificate_;
    std::string ca_file_;
    Key intermediate_key_;
    Certificate intermediate_certificate_;
    std::string intermediate_file_;
    CertificateFiles server_;
    mutable std::once_flag device_made_;
    mutable std::string device_;
};

}  // namespace kel::http::test
