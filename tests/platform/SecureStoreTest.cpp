// SPDX-License-Identifier: MIT
#include "sec/secure_store.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <vector>

#include "ConfiguredHost.h"
#include "ko/host.h"

namespace {

using Getter = int (*)(int, unsigned char*, unsigned int*);

// Buffer and length as a caller of the store has them, filled with a pattern that shows what was written.
struct Answer {
    explicit Answer(Getter get, int slot = 0, unsigned int size = 4096) : length(size) {
        buffer.fill(0xEE);
        result = get(slot, buffer.data(), &length);
    }
    std::string text() const { return {buffer.begin(), buffer.begin() + length}; }
    bool untouched(unsigned int size = 4096) const {
        return length == size &&
               std::all_of(buffer.begin(), buffer.end(), [](unsigned char byte) { return byte == 0xEE; });
    }

    std::array<unsigned char, 4096> buffer;
    unsigned int length;
    int result;
};

struct ReleaseCertificate {
    void operator()(X509* certificate) const { X509_free(certificate); }
};
struct ReleaseKey {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
using Certificate = std::unique_ptr<X509, ReleaseCertificate>;
using Key = std::unique_ptr<EVP_PKEY, ReleaseKey>;

// Both parse the whole zeroed buffer, as a caller does who trusts the length in the DER rather than the returned one.
Certificate parse_certificate() {
    std::array<unsigned char, 4096> buffer{};
    unsigned int length = 4096;
    if (sec_get_deviceCert(0, buffer.data(), &length) != 0) return nullptr;
    const unsigned char* cursor = buffer.data();
    return Certificate(d2i_X509(nullptr, &cursor, 4096));
}

Key parse_key() {
    std::array<unsigned char, 4096> buffer{};
    unsigned int length = 4096;
    if (sec_get_priv_key(0, buffer.data(), &length) != 0) return nullptr;
    const unsigned char* cursor = buffer.data();
    return Key(d2i_PrivateKey(EVP_PKEY_RSA, nullptr, &cursor, 4096));
}

class SecureStoreTest : public ConfiguredHost {
 protected:
    void use(const std::string& directory) {
        settings.secure_store_directory = directory;
        ko::host::configure(settings);
    }

    TemporaryFolder folder;
};

TEST_F(SecureStoreTest, FilesOfTheFolderAreReturned) {
    const std::string certificate("cert\0ificate", 12);
    folder.write("device_cert.der", certificate);
    folder.write("device_key.der", "the key");
    use(folder.path());
    const Answer cert(sec_get_deviceCert);
    EXPECT_EQ(0, cert.result);
    EXPECT_EQ(certificate, cert.text());
    EXPECT_EQ(0xEE, cert.buffer[cert.length]);
    const Answer key(sec_get_priv_key);
    EXPECT_EQ(0, key.result);
    EXPECT_EQ("the key", key.text());
}

TEST_F(SecureStoreTest, FolderWithoutFilesFailsAndWritesNothing) {
    use(folder.path());
    for (const Getter get : {sec_get_deviceCert, sec_get_priv_key}) {
        const Answer answer(get);
        EXPECT_NE(0, answer.result);
        EXPECT_TRUE(answer.untouched());
    }
}

TEST_F(SecureStoreTest, EmptyFileFails) {
    folder.write("device_cert.der", "");
    use(folder.path());
    EXPECT_NE(0, Answer(sec_get_deviceCert).result);
}

TEST_F(SecureStoreTest, BufferHasToHoldTheWholeFile) {
    folder.write("device_key.der", "0123456789");
    use(folder.path());
    EXPECT_EQ(0, Answer(sec_get_priv_key, 0, 10).result);
    const Answer too_small(sec_get_priv_key, 0, 9);
    EXPECT_NE(0, too_small.result);
    EXPECT_TRUE(too_small.untouched(9));
    EXPECT_NE(0, Answer(sec_get_priv_key, 0, 0).result);
}

TEST_F(SecureStoreTest, PipeThatNobodyWritesToFailsAtOnce) {
    ASSERT_EQ(0, mkfifo(folder.file("device_cert.der").c_str(), 0600));
    ASSERT_EQ(0, mkfifo(folder.file("device_key.der").c_str(), 0600));
    use(folder.path());
    for (const Getter get : {sec_get_deviceCert, sec_get_priv_key}) {
        const Answer answer(get);
        EXPECT_NE(0, answer.result);
        EXPECT_TRUE(answer.untouched());
    }
}

TEST_F(SecureStoreTest, WhatIsNoFileFails) {
    ASSERT_EQ(0, mkdir(folder.file("device_cert.der").c_str(), 0700));
    ASSERT_EQ(0, symlink("/dev/zero", folder.file("device_key.der").c_str()));
    use(folder.path());
    EXPECT_NE(0, Answer(sec_get_deviceCert).result);
    EXPECT_NE(0, Answer(sec_get_priv_key).result);
}

TEST_F(SecureStoreTest, UnknownSlotAndNullPointersFail) {
    folder.write("device_cert.der", "certificate");
    use(folder.path());
    const Answer other_slot(sec_get_deviceCert, 1);
    EXPECT_NE(0, other_slot.result);
    EXPECT_TRUE(other_slot.untouched());
    unsigned int length = 4096;
    unsigned char byte = 0;
    EXPECT_NE(0, sec_get_deviceCert(0, nullptr, &length));
    EXPECT_NE(0, sec_get_deviceCert(0, &byte, nullptr));
}

TEST_F(SecureStoreTest, DevelopmentIdentityIsACertificateWithItsKey) {
    use("");
    const Certificate certificate = parse_certificate();
    const Key key = parse_key();
    ASSERT_TRUE(certificate);
    ASSERT_TRUE(key);
    EXPECT_EQ(1, X509_check_private_key(certificate.get(), key.get()));
    EXPECT_EQ(2048, EVP_PKEY_bits(key.get()));
}

TEST_F(SecureStoreTest, DevelopmentCertificateIsSelfSignedNamedAndInForce) {
    use("");
    const Certificate certificate = parse_certificate();
    ASSERT_TRUE(certificate);
    EXPECT_EQ(1, X509_verify(certificate.get(), X509_get0_pubkey(certificate.get())));
    EXPECT_EQ(0, X509_NAME_cmp(X509_get_subject_name(certificate.get()), X509_get_issuer_name(certificate.get())));
    std::array<char, 64> name{};
    X509_NAME_get_text_by_NID(X509_get_subject_name(certificate.get()), NID_commonName, name.data(), 64);
    EXPECT_STREQ("kel-http development device", name.data());
    EXPECT_EQ(-1, X509_cmp_current_time(X509_get0_notBefore(certificate.get())));
    EXPECT_EQ(1, X509_cmp_current_time(X509_get0_notAfter(certificate.get())));
    EXPECT_EQ(2, X509_get_version(certificate.get()));
}

TEST_F(SecureStoreTest, DevelopmentIdentityStaysTheSameForTheProcess) {
    use("");
    const std::string first = Answer(sec_get_priv_key).text();
    use(folder.path());
    EXPECT_NE(0, Answer(sec_get_priv_key).result);
    use("");
    EXPECT_EQ(first, Answer(sec_get_priv_key).text());
}

TEST_F(SecureStoreTest, DevelopmentIdentityNeedsRoomAsWell) {
    use("");
    const Answer answer(sec_get_deviceCert, 0, 16);
    EXPECT_NE(0, answer.result);
    EXPECT_TRUE(answer.untouched(16));
}

TEST(SecureStoreDeathTest, ProcessThatNeverConfiguresHasTheDevelopmentIdentity) {
    EXPECT_EXIT(
        {
            const Certificate certificate = parse_certificate();
            const Key key = parse_key();
            std::exit(certificate && key && X509_check_private_key(certificate.get(), key.get()) == 1 ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

}  // namespace
