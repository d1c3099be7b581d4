# SPDX-License-Identifier: MIT
# What a device has of libmosquitto and OpenSSL. Without pkg-config: the building machine's would answer with that
# machine's libraries. They are looked for in CMAKE_FIND_ROOT_PATH and CMAKE_PREFIX_PATH.
find_path(MOSQUITTO_INCLUDE_DIR mosquitto.h)
find_library(MOSQUITTO_LIBRARY NAMES mosquitto_static mosquitto)
if(NOT MOSQUITTO_INCLUDE_DIR OR NOT MOSQUITTO_LIBRARY)
  message(FATAL_ERROR "libmosquitto for ${ANDROID_ABI} is missing, see docs/android.md")
endif()
file(STRINGS "${MOSQUITTO_INCLUDE_DIR}/mosquitto.h" mosquitto_VERSION REGEX "^#define LIBMOSQUITTO_M[AI][JN]OR ")
string(REGEX REPLACE "[^0-9]*([0-9]+)[^0-9]*([0-9]+).*" "\\1.\\2" mosquitto_VERSION "${mosquitto_VERSION}")
if(mosquitto_VERSION VERSION_LESS 2.0)
  message(FATAL_ERROR "libmosquitto ${mosquitto_VERSION} is older than 2.0")
endif()
add_library(PkgConfig::mosquitto UNKNOWN IMPORTED) # under the name that it has everywhere else
set_target_properties(PkgConfig::mosquitto PROPERTIES IMPORTED_LOCATION "${MOSQUITTO_LIBRARY}"
  INTERFACE_INCLUDE_DIRECTORIES "${MOSQUITTO_INCLUDE_DIR}" INTERFACE_LINK_LIBRARIES OpenSSL::SSL)

# A plain libssl.so would be the system's own, so applications bring theirs under these names.
find_path(OPENSSL_INCLUDE_DIR openssl/ssl.h)
find_library(OPENSSL_SSL_LIBRARY NAMES ssl_1_1 ssl)
find_library(OPENSSL_CRYPTO_LIBRARY NAMES crypto_1_1 crypto)
