# Bus classes, generated from the interface descriptions in dbus/ by Qt's own generator.
set(KOVA_DBUS_DIR ${PROJECT_SOURCE_DIR}/dbus)

# kova_dbus_class(<target> <interface> <class> [PARENT <class>] [FROM <folder>] [INCLUDE <header>])
# Generates <class> in <class>.h and adds it to <target>. It is a client of <interface>, or with PARENT an adaptor that
# exports <interface> and forwards to the parent, whose header is <parent class>.h. FROM names the description's folder
# if it is not dbus/, INCLUDE a header that declares the types of the annotations.
function(kova_dbus_class target interface class)
  cmake_parse_arguments(class "" "PARENT;FROM;INCLUDE" "" ${ARGN})
  if(class_PARENT)
    set(class_INCLUDE ${class_PARENT}.h)
  endif()
  if(NOT class_FROM)
    set(class_FROM ${KOVA_DBUS_DIR})
  endif()
  set(xml ${class_FROM}/${interface}.xml)
  set(base ${CMAKE_CURRENT_BINARY_DIR}/${class})
  add_custom_command(OUTPUT ${base}.h ${base}.cpp
    COMMAND ${CMAKE_COMMAND} -DGENERATOR=$<TARGET_FILE:Qt${KOVA_QT_VERSION}::qdbusxml2cpp>
      -DCLASS=${class} -DXML=${xml} -DBASE=${base} -DPARENT=${class_PARENT} -DINCLUDE=${class_INCLUDE}
      -P ${PROJECT_SOURCE_DIR}/cmake/GenerateBusClass.cmake
    DEPENDS ${xml} ${PROJECT_SOURCE_DIR}/cmake/GenerateBusClass.cmake ${PROJECT_SOURCE_DIR}/cmake/CurrentAnnotations.cmake
    VERBATIM)
  target_sources(${target} PRIVATE ${base}.h ${base}.cpp)
  target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${CMAKE_CURRENT_BINARY_DIR}>)
endfunction()

# kova_dbus_proxy(<target> <interface> <class> [FROM <folder>] [INCLUDE <header>])
function(kova_dbus_proxy)
  kova_dbus_class(${ARGV})
endfunction()

# kova_dbus_adaptor(<target> <interface> <class> <parent class>)
function(kova_dbus_adaptor target interface class parent)
  kova_dbus_class(${target} ${interface} ${class} PARENT ${parent})
endfunction()
