# Compiler options for every target of this project.
add_library(kova_options INTERFACE)
target_compile_features(kova_options INTERFACE cxx_std_20)
target_compile_options(kova_options INTERFACE
  -Wall -Wextra -Wpedantic
  $<$<BOOL:${KOVA_WERROR}>:-Werror>
  # Make the programs independent of the folder that they are built in.
  -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=)

if(KOVA_SANITIZE)
  target_compile_options(kova_options INTERFACE
    -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
  target_link_options(kova_options INTERFACE -fsanitize=address,undefined)
endif()

if(KOVA_FUZZ)
  target_compile_options(kova_options INTERFACE -fsanitize=fuzzer-no-link)
endif()
