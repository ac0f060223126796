// SPDX-License-Identifier: MIT
#include "parties/TlsPeer.h"

#include <openssl/err.h>
#include <openssl/ssl.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

#include "support/TestCertificates.h"
#include "world/Randomness.h"

namespace kel::http::simulation {
namespace {

constexpr Time turnaround = std::chrono::milliseconds(1);

template <auto Release>
struct ReleasedBy {
    template <typename T>
    void operator()(T* handle) const noexcept {
        Release(handle);
    }
};
using Context = std::unique_ptr<SSL_CTX, ReleasedBy<SSL_CTX_free>>;
using Session = std::unique_ptr<SSL, ReleasedBy<SSL_free>>;

// What goes wrong at this end is nothing that the client, which may be calling from the midst of its own TLS, should find.
class ErrorFence {
 public:
    ErrorFence() { ERR_set_mark(); }
    ~ErrorFence() { ERR_pop_to_mark(); }
    ErrorFence(const ErrorFence&) = delete;
    ErrorFence& operator=(const ErrorFence&) = delete;
};

test::CertificateWish hostsWish() {
    test::CertificateWish wish;
    wish.common_name = "hosts";
    wish.subject_alt_names.clear();
    for (int host = 0; host < 16; ++host) {
        if (host > 0) wish.subject_alt_names += ",";
        wish.subject_alt_names += "DNS:host-" + std::to_string(host) + ",IP:10.0.0." + std::to_string(host + 1);
    }
    return wish;
}

test::CertificateWish wrongWish() {
    test::CertificateWish wish;
    wish.common_name = "elsewhere";
    wish.subject_alt_names = "DNS:elsewhere";
    return wish;
}

// Tickets alone tell of earlier sessions: nothing is kept from one world to the next.
Context contextOf(const test::CertificateFiles& files) {
    Context context(SSL_CTX_new(TLS_server_method()));
    if (!context) throw std::runtime_error("no TLS");
    SSL_CTX_set_session_cache_mode(context.get(), SSL_SESS_CACHE_OFF);
    const bool right = SSL_CTX_use_certificate_chain_file(context.get(), files.certificate_file.c_str()) == 1 &&
                       SSL_CTX_use_PrivateKey_file(context.get(), files.key_file.c_str(), SSL_FILETYPE_PEM) == 1;
    if (!right) throw std::runtime_error("the certificate can not be used");
    return context;
}

struct Identities {
    test::TestCertificates certificates;
    test::CertificateFiles client = certificates.issue("client", test::CertificateWish());
    Context right = contextOf(certificates.issue("hosts", hostsWish()));
    Context wrong = contextOf(certificates.issue("wrong", wrongWish()));
};

const Identities& identities() {
    static const Identities made;
    return made;
}

bool speaksTls(const Script& script) {
    return std::any_of(script.hosts.begin(), script.hosts.end(), [](const HostScript& host) { return host.tls != 0; });
}

class TlsPeer : public Peer {
 public:
    TlsPeer(World& world, const HostScript& host, std::shared_ptr<Peer> plain, Observation& observation)
        : world_(world),
          host_(host),
          plain_(std::move(plain)),
          observation_(observation),
          session_(SSL_new(host.tlsWrong != 0 ? identities().wrong.get() : identities().right.get())),
          in_(BIO_new(BIO_s_mem())),
          out_(BIO_new(BIO_s_mem())) {
        SSL_set_bio(session_.get(), in_, out_);
        SSL_set_accept_state(session_.get());
    }

    void onBytes(Link& link, std::string_view bytes) override {
        if (ended_) return observation_.unheard.push_back({world_.now(), host_.id, -1, observation_.arrivals.size()});
        const ErrorFence fence;
        BIO_write(in_, bytes.data(), static_cast<int>(bytes.size()));
        if (!shakeHands(link)) return;
        std::array<char, 4096> text{};
        for (;;) {
            const int size = SSL_read(session_.get(), text.data(), static_cast<int>(text.size()));
            if (size <= 0) break;
            if (!inner_) inner_ = std::make_unique<Link>(-1, link.to());
            plain_->onBytes(*inner_, {text.data(), static_cast<std::size_t>(size)});
        }
        forward(link);
    }

    void onClose() override { plain_->onClose(); }

 private:
    // Whether they are through with it.
    bool shakeHands(Link& link) {
        if (SSL_is_init_finished(session_.get()) != 0) return true;
        const int result = SSL_do_handshake(session_.get());
        const bool failed = result <= 0 && SSL_get_error(session_.get(), result) != SSL_ERROR_WANT_READ;
        if (result == 1) {
            const bool resumed = SSL_session_reused(session_.get()) != 0;
            ++observation_.tlsHandshakes;
            if (resumed) ++observation_.tlsResumed;
            world_.note("tls", std::to_string(host_.id) + (resumed ? " resumes a session" : " has shaken hands"));
        }
        flush(link, world_.now() + turnaround);
        if (failed) end(link, world_.now() + turnaround, Cut::close);
        return result == 1;
    }

    // What the plain peer has planned, in cipher.
    void forward(Link& link) {
        if (!inner_) return;
        for (Link::Event& event : inner_->takePlanned()) {
            if (ended_) return;
            if (event.kind == Link::Event::Reset) return end(link, event.at, Cut::reset);
            if (event.kind == Link::Event::Data && !event.bytes.empty()) {
                SSL_write(session_.get(), event.bytes.data(), static_cast<int>(event.bytes.size()));
            }
            if (event.kind == Link::Event::Finish) SSL_shutdown(session_.get());
            flush(link, event.at);
            if (event.kind == Link::Event::Finish) end(link, event.at, Cut::close);
        }
    }

    void flush(Link& link, Time at) {
        char* bytes = nullptr;
        const long size = BIO_get_mem_data(out_, &bytes);
        if (size <= 0 || ended_) return;
        std::string sent(bytes, static_cast<std::size_t>(size));
        (void)BIO_reset(out_);
        const std::int64_t left = host_.tlsCutAt - sent_;
        const bool is_cut = host_.tlsCut != Cut::none && left < size;
        if (is_cut) sent.resize(static_cast<std::size_t>(std::max<std::int64_t>(left, 0)));
        sent_ += size;
        if (!sent.empty()) link.send(at, std::move(sent));
        if (is_cut) end(link, at, host_.tlsCut);
    }

    void end(Link& link, Time at, Cut how) {
        if (ended_) return;
        ended_ = true;
        if (how == Cut::close) link.finish(at);
        if (how == Cut::reset) link.reset(at);
    }

    World& world_;
    const HostScript host_;
    const std::shared_ptr<Peer> plain_;
    Observation& observation_;
    const Session session_;
    BIO* const in_;   // the session's
    BIO* const out_;  // the session's
    std::unique_ptr<Link> inner_;
    std::int64_t sent_ = 0;
    // Nothing is sent any more.
    bool ended_ = false;
};

}  // namespace

std::shared_ptr<Peer> tlsPeer(World& world, const HostScript& host, std::shared_ptr<Peer> plain,
                              Observation& observation) {
    return std::make_shared<TlsPeer>(world, host, std::move(plain), observation);
}

void addIdentity(RequestConfig& config, const Script& script) {
    if (!speaksTls(script)) return;
    config.ca_file = identities().certificates.caFile();
    config.own_cert = identities().client.certificate_file;
    config.own_pkey = identities().client.key_file;
}

void prepareIdentities(const Script& script) {
    if (!speaksTls(script)) return;
    makeRandomnessRepeatable(0);
    identities();
    makeRandomnessRepeatable(static_cast<std::uint64_t>(script.world.order));
}

}  // namespace kel::http::simulation
