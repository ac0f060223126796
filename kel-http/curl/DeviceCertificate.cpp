// SPDX-License-Identifier: MIT
#include "kel-http/curl/DeviceCertificate.h"

namespace kel::http {

bool DeviceCertificate::look() {
    if (der.empty()) return false;
    tls::CertificateDer certificate;
    return tls::readDeviceCertificate(certificate) && note(certificate);
}

bool DeviceCertificate::note(const tls::CertificateDer& certificate) {
    if (der == certificate.text()) return false;
    const bool is_first = der.empty();
    if (!is_first) ++current;  // first, so that what fails below leaves no number that stands for two
    der = certificate.text();
    return !is_first;
}

}  // namespace kel::http
