// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

#include "kel-http/curl/TlsDevice.h"

namespace kel::http {

// Which certificate the device presents, by number: another number whenever it is not the one seen last, even if it was
// there before. libcurl knows nothing of it: it would let a connection, or a TLS session, in which the server sees one
// device serve a request of another.
//
// Engine thread.
class DeviceCertificate {
 public:
    // Asks the secure store, once a handshake has presented a certificate; before that there is nothing to be told apart,
    // and a store may take its time. True when the certificate is another one than before. A store that fails has not
    // changed: it may have something to present by the time of the handshake. Throws std::bad_alloc.
    bool look();

    // Hears what a handshake presents. True when the certificate is another one than before. Throws std::bad_alloc.
    bool note(const tls::CertificateDer& certificate);

    std::uint32_t number() const { return current; }

 private:
    std::string der;  // empty before the first handshake
    std::uint32_t current = 0;
};

}  // namespace kel::http
