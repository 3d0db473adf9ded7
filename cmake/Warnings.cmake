# What every target of ours is compiled with: link it with vemo_compile_options.
add_library(vemo_compile_options INTERFACE)
target_compile_options(vemo_compile_options INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion
  # Nothing that we build names the folder that it was built in.
  -ffile-prefix-map=${CMAKE_SOURCE_DIR}/=)
if(VEMO_WERROR)
  target_compile_options(vemo_compile_options INTERFACE -Werror)
endif()
if(VEMO_SANITIZE)
  target_compile_options(vemo_compile_options INTERFACE
    -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(vemo_compile_options INTERFACE -fsanitize=address,undefined)
endif()
