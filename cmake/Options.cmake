# Compiler options shared by everything that is built.
add_library(tobix_options INTERFACE)
target_compile_options(tobix_options INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror
  -fstack-protector-strong -fno-omit-frame-pointer -g1
  -fmacro-prefix-map=${CMAKE_SOURCE_DIR}/=)
target_compile_definitions(tobix_options INTERFACE _FILE_OFFSET_BITS=64 _GNU_SOURCE)
if(CMAKE_BUILD_TYPE STREQUAL "Release")
  target_compile_definitions(tobix_options INTERFACE _FORTIFY_SOURCE=2)
endif()
if(TOBIX_SANITIZE)
  target_compile_options(tobix_options INTERFACE -fsanitize=${TOBIX_SANITIZE} -fno-sanitize-recover=all)
  target_link_options(tobix_options INTERFACE -fsanitize=${TOBIX_SANITIZE})
  if(TOBIX_SANITIZE MATCHES "undefined")
    # This one reads memory through a pipe, and takes every object for a wrong one when no descriptor is left.
    target_compile_options(tobix_options INTERFACE -fno-sanitize=vptr)
  endif()
  string(REGEX MATCH "[a-z]+" tobix_first_sanitizer ${TOBIX_SANITIZE})
  target_compile_definitions(tobix_options INTERFACE TOBIX_SANITIZE_BUILD="${tobix_first_sanitizer}")
endif()
if(TOBIX_FUZZ) # the libraries tell the fuzzer, too, which of their branches an input reached
  target_compile_options(tobix_options INTERFACE -fsanitize=fuzzer-no-link)
endif()
if(TOBIX_COVERAGE)
  target_compile_options(tobix_options INTERFACE --coverage)
  target_link_options(tobix_options INTERFACE --coverage)
endif()
