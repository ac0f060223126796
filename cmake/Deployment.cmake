# SPDX-License-Identifier: MIT
# What depends on the fleet that the library is built for. The checks work in script mode as well (cmake -P).
set(KEL_HTTP_DEFAULT_PROXY_HOST "proxy.kel.example.net" CACHE STRING
    "Host of the deployment's proxy, which listens on port 80")
set(KEL_HTTP_NO_PROXY_DOMAIN "device-services.kel.example.net" CACHE STRING
    "Domain whose hosts are reached without a proxy by development and test builds; 31 characters")

foreach(variable KEL_HTTP_DEFAULT_PROXY_HOST KEL_HTTP_NO_PROXY_DOMAIN)
  if(NOT "${${variable}}" MATCHES "^[A-Za-z0-9]([A-Za-z0-9.-]*[A-Za-z0-9])?$")
    message(FATAL_ERROR "${variable} is '${${variable}}', which is no host name: give one of letters, digits, hyphens "
                        "and dots, without scheme, port or a dot in front")
  endif()
endforeach()

string(LENGTH "${KEL_HTTP_NO_PROXY_DOMAIN}" length)
if(NOT length EQUAL 31)
  message(FATAL_ERROR "KEL_HTTP_NO_PROXY_DOMAIN is '${KEL_HTTP_NO_PROXY_DOMAIN}', which has ${length} characters: "
                      "the services of a deployment have a domain of exactly 31")
endif()
unset(length)
