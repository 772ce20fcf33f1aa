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

# kova_daemon(<target>)
# Completes an executable that is a daemon. The device's libraries find _logInterface in it, and nothing else.
function(kova_daemon target)
  target_include_directories(${target} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
  target_compile_definitions(${target} PRIVATE KOVA_VERSION="${PROJECT_VERSION}")
  target_link_libraries(${target} PRIVATE kova_options log_qt process Qt::Core Qt::DBus)
  target_link_options(${target} PRIVATE LINKER:--export-dynamic-symbol=_logInterface)
  set_target_properties(${target} PROPERTIES CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  install(TARGETS ${target})
endfunction()
