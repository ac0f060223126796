// SPDX-License-Identifier: MIT
#include "common/FailureName.h"

namespace kel::http::tool {

std::string_view failure_name(ClientFailure failure) {
    switch (failure) {
        case ClientFailure::InvalidUrl:
            return "InvalidUrl";
        case ClientFailure::ResolveFailed:
            return "ResolveFailed";
        case ClientFailure::Other:
            return "Other";
        case ClientFailure::Timeout:
            return "Timeout";
        case ClientFailure::AuthFailure:
            return "AuthFailure";
        case ClientFailure::ConnectFailed:
            return "ConnectFailed";
        case ClientFailure::WriteFailed:
            return "WriteFailed";
        case ClientFailure::RangeError:
            return "RangeError";
    }
    return "unknown";
}

}  // namespace kel::http::tool
