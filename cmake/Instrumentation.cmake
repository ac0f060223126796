# SPDX-License-Identifier: MIT
# Sanitizers and coverage have to reach every object of the build, so they are the one thing set globally.
add_compile_options(-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=)
if(KEL_HTTP_SANITIZE)
  add_compile_options(-fsanitize=${KEL_HTTP_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${KEL_HTTP_SANITIZE})
endif()
if(KEL_HTTP_COVERAGE)
  add_compile_options(--coverage -fprofile-update=atomic)
  add_link_options(--coverage)
endif()
