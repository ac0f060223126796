// SPDX-License-Identifier: MIT
#ifndef CERTIFICATE_CERTIFICATE_H
#define CERTIFICATE_CERTIFICATE_H

#include <string>

// The store of trusted certificates. Threads: any.
namespace certificate {

// The index under which an SSL_CTX carries the text for a request's certificate verifier; the same for the whole life
// of the process, and reserved for this use. The text, a C string from OPENSSL_strdup(), is the context's, which frees
// it when it ends itself.
int sslctx_data_index();

// Whether there is a bundle of this name that this process can read at the moment.
bool ca_pem_exists(const std::string& name);

// File of the bundle (PEM), whether or not it exists; empty for an unknown name.
std::string ca_path(const std::string& name);

}  // namespace certificate

#endif  // CERTIFICATE_CERTIFICATE_H
