# Bus classes, generated from the interface descriptions in dbus/ by Qt's own generator.
set(KOVA_DBUS_DIR ${PROJECT_SOURCE_DIR}/dbus)

# kova_dbus_proxy(<target> <interface> <class> [FROM <folder>] [INCLUDE <header>])
# Adds the client class <class> of <interface>, in <class>.h, to <target>. FROM names the description's folder if it is
# not dbus/, INCLUDE a header with types of its own.
function(kova_dbus_proxy target interface class)
  cmake_parse_arguments(proxy "" "FROM;INCLUDE" "" ${ARGN})
  if(NOT proxy_FROM)
    set(proxy_FROM ${KOVA_DBUS_DIR})
  endif()
  set(xml ${proxy_FROM}/${interface}.xml)
  set(base ${CMAKE_CURRENT_BINARY_DIR}/${class})
  add_custom_command(OUTPUT ${base}.h ${base}.cpp
    COMMAND ${CMAKE_COMMAND} -DGENERATOR=$<TARGET_FILE:Qt${KOVA_QT_VERSION}::qdbusxml2cpp>
      -DCLASS=${class} -DXML=${xml} -DMODE=proxy -DBASE=${base} -DINCLUDE=${proxy_INCLUDE}
      -P ${PROJECT_SOURCE_DIR}/cmake/GenerateBusClass.cmake
    DEPENDS ${xml} ${PROJECT_SOURCE_DIR}/cmake/GenerateBusClass.cmake VERBATIM)
  target_sources(${target} PRIVATE ${base}.h ${base}.cpp)
  target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${CMAKE_CURRENT_BINARY_DIR}>)
endfunction()

# kova_dbus_adaptor(<target> <interface> <class> <parent class>)
# Adds the adaptor <class>, in <class>.h, that exports <interface> and forwards to its parent, declared in
# <parent class>.h.
function(kova_dbus_adaptor target interface class parent)
  set(xml ${KOVA_DBUS_DIR}/${interface}.xml)
  set(base ${CMAKE_CURRENT_BINARY_DIR}/${class})
  add_custom_command(OUTPUT ${base}.h ${base}.cpp
    COMMAND ${CMAKE_COMMAND} -DGENERATOR=$<TARGET_FILE:Qt${KOVA_QT_VERSION}::qdbusxml2cpp>
      -DCLASS=${class} -DXML=${xml} -DMODE=adaptor -DBASE=${base} -DPARENT=${parent}
      -P ${PROJECT_SOURCE_DIR}/cmake/GenerateBusClass.cmake
    DEPENDS ${xml} ${PROJECT_SOURCE_DIR}/cmake/GenerateBusClass.cmake VERBATIM)
  target_sources(${target} PRIVATE ${base}.h ${base}.cpp)
  target_include_directories(${target} PUBLIC ${CMAKE_CURRENT_BINARY_DIR})
endfunction()
