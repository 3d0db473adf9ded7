# What every target of ours is compiled with: link it with vemo_compile_options.
add_library(vemo_compile_options INTERFACE)
target_compile_options(vemo_compile_options INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion
  # Nothing that we build names the folder that it was built in.
  -ffile-prefix-map=${CMAKE_SOURCE_DIR}/=)
if(VEMO_WERROR)
  target_compile_options(vemo_compile_options INTERFACE -Werror)
endif()
# Hardened as distributions do; a build that defines _FORTIFY_SOURCE itself keeps its own.
if(NOT VEMO_SANITIZE AND NOT VEMO_FUZZ)
  target_compile_options(vemo_compile_options INTERFACE
    -fstack-protector-strong -fstack-clash-protection
    $<$<STREQUAL:${CMAKE_SYSTEM_PROCESSOR},x86_64>:-fcf-protection>)
  target_link_options(vemo_compile_options INTERFACE -Wl,-z,relro,-z,now,-z,noexecstack)
  if(NOT CMAKE_CXX_FLAGS MATCHES "_FORTIFY_SOURCE")
    target_compile_definitions(vemo_compile_options INTERFACE _FORTIFY_SOURCE=2)
  endif()
endif()
if(VEMO_FUZZ)
  target_compile_options(vemo_compile_options INTERFACE -fsanitize=fuzzer-no-link)
endif()
if(VEMO_SANITIZE OR VEMO_FUZZ)
  if(VEMO_SANITIZE)
    set(sanitizers ${VEMO_SANITIZE})
  else()
    set(sanitizers address,undefined)
  endif()
  target_compile_options(vemo_compile_options INTERFACE
    -fsanitize=${sanitizers} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(vemo_compile_options INTERFACE -fsanitize=${sanitizers})
endif()
