// SPDX-License-Identifier: MIT
#include "kel-http/ResponseData.h"

#include <utility>

namespace kel::http {

ResponseData::ResponseData(int status_code, const HeaderMap& header_map, const std::string& body_text)
    : ResponseData(status_code, header_map, body_text, tl::nullopt, 0) {}

ResponseData::ResponseData(int status_code, const HeaderMap& header_map, const std::string& body_text,
                           tl::optional<std::string> url, int count)
    : status(status_code), headers(header_map), body(body_text), redirect_url(std::move(url)), redirect_count(count) {}

}  // namespace kel::http
