# SPDX-License-Identifier: MIT
# FLOTROFOBUL_SANITIZE instruments everything that is built here, tests and examples included.
if(FLOTROFOBUL_SANITIZE)
  add_compile_options(-fsanitize=${FLOTROFOBUL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${FLOTROFOBUL_SANITIZE})
endif()
