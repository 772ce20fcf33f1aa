# cmake -P script: generates one bus class from an interface description.
# Variables: GENERATOR, XML, CLASS, BASE (the output path without suffix), PARENT (the class behind an adaptor; empty for
# a proxy), INCLUDE (a header, may be empty).
include(${CMAKE_CURRENT_LIST_DIR}/CurrentAnnotations.cmake)
get_filename_component(folder ${BASE} DIRECTORY)
get_filename_component(name ${BASE} NAME)
if(PARENT)
  set(arguments -c ${CLASS} -l ${PARENT} -a ${name})
else()
  set(arguments -c ${CLASS} -p ${name})
endif()
if(INCLUDE)
  list(APPEND arguments -i ${INCLUDE})
endif()

file(READ ${XML} description)
set(current "${description}")
kova_current_annotations(current)
file(WRITE ${BASE}.xml "${current}")
execute_process(COMMAND ${GENERATOR} ${arguments} ${BASE}.xml
  WORKING_DIRECTORY ${folder} RESULT_VARIABLE failed ERROR_VARIABLE remarks)
if(failed)
  message(FATAL_ERROR "${GENERATOR} ${XML}: ${remarks}")
endif()
if(remarks)
  message(WARNING "${GENERATOR} ${XML}: ${remarks}")
endif()

file(READ ${BASE}.h header)
set(unknown "${GENERATOR} writes bus classes in a form that this script does not know: ${BASE}.h")

if(PARENT)
  # An adaptor answers Introspect from this class information, in which the generator drops the comments. Replace it by
  # the description's own interface element, verbatim.
  string(REGEX MATCH "[ \t]*<interface[ \t\n].*</interface>[ \t]*\n" element "${description}")
  string(REPLACE "\\" "\\\\" element "${element}")
  string(REPLACE "\"" "\\\"" element "${element}")
  string(REPLACE "\n" "\\n\"\n\"" element "${element}")

  string(FIND "${header}" "Q_CLASSINFO(\"D-Bus Introspection\", \"\"" start)
  string(FIND "${header}" "public:\n" end)
  if(element STREQUAL "" OR start EQUAL -1 OR end EQUAL -1)
    message(FATAL_ERROR "${unknown}")
  endif()
  string(SUBSTRING "${header}" 0 ${start} before)
  string(SUBSTRING "${header}" ${end} -1 after)
  file(WRITE ${BASE}.h "${before}Q_CLASSINFO(\"D-Bus Introspection\",\n\"${element}\")\n${after}")
else()
  # A proxy reads all out arguments but the first with qdbus_cast, which aborts the process if a peer answers a structure
  # or an array instead of a basic type. They all are basic types here: qvariant_cast does the same for these, and yields
  # a default value for anything else.
  set(further 0)
  string(REGEX REPLACE "<!--([^-]|-[^-])*-->|;" "" methods "${description}")
  string(REPLACE "</method>" ";" methods "${methods}")
  foreach(method IN LISTS methods)
    string(REGEX MATCH "<method .*" method "${method}")
    string(REGEX REPLACE ".*<method " "" method "${method}")
    string(REGEX MATCHALL "direction=\"out\"" outs "${method}")
    list(LENGTH outs count)
    if(count GREATER 1)
      math(EXPR further "${further} + ${count} - 1")
    endif()
  endforeach()

  string(REGEX MATCHALL "qdbus_cast<" casts "${header}")
  list(LENGTH casts count)
  if(NOT count EQUAL further)
    message(FATAL_ERROR "${unknown}")
  endif()
  string(REPLACE "qdbus_cast<" "qvariant_cast<" header "${header}")
  # Remove the alias in a namespace named like the interface: nobody uses it, and it clashes if another interface's name
  # begins with this one's.
  string(REGEX REPLACE "\nnamespace [a-z]+ {.*}\n#endif" "\n#endif" header "${header}")
  file(WRITE ${BASE}.h "${header}")
endif()
