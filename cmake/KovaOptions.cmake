# How every target of this project is compiled.
add_library(kova_options INTERFACE)
target_compile_features(kova_options INTERFACE cxx_std_20)
target_compile_options(kova_options INTERFACE
  -Wall -Wextra -Wpedantic
  $<$<BOOL:${KOVA_WERROR}>:-Werror>
  # A log line names its source file relative to this folder, whatever folder is built in. The shared header's lines
  # carry the path that it has in the device's source tree; of several maps that match, the compiler takes the last.
  -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=
  -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/include/common_qdbus.h=../../include/common_qdbus.h)

if(KOVA_SANITIZE)
  target_compile_options(kova_options INTERFACE
    -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
  target_link_options(kova_options INTERFACE -fsanitize=address,undefined)
endif()

if(KOVA_FUZZ)
  target_compile_options(kova_options INTERFACE -fsanitize=fuzzer-no-link)
endif()
