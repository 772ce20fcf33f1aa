# cmake -P script: generates one bus class from an interface description.
# Variables: GENERATOR, XML, CLASS, MODE (proxy or adaptor), BASE (output path without suffix), PARENT (adaptors),
# INCLUDE (a header for proxies, may be empty).
get_filename_component(folder ${BASE} DIRECTORY)
get_filename_component(name ${BASE} NAME)
set(arguments -c ${CLASS})
if(MODE STREQUAL adaptor)
  list(APPEND arguments -l ${PARENT} -i ${PARENT}.h -a ${name})
else()
  list(APPEND arguments -p ${name})
  if(INCLUDE)
    list(APPEND arguments -i ${INCLUDE})
  endif()
endif()

# The generator's remarks about the annotation's name are of no use to who builds: the name is part of the contract.
execute_process(COMMAND ${GENERATOR} ${arguments} ${XML}
  WORKING_DIRECTORY ${folder} RESULT_VARIABLE failed ERROR_VARIABLE remarks)
if(failed)
  message(FATAL_ERROR "${GENERATOR} ${XML}: ${remarks}")
endif()

# The generator drops the comments of the description that an adaptor answers Introspect with. Put the description's
# own interface element there, to the letter.
if(MODE STREQUAL adaptor)
  file(READ ${XML} text)
  string(FIND "${text}" "  <interface " start)
  string(FIND "${text}" "</node>" end)
  math(EXPR length "${end} - ${start}")
  string(SUBSTRING "${text}" ${start} ${length} text)
  string(REPLACE "\\" "\\\\" text "${text}")
  string(REPLACE "\"" "\\\"" text "${text}")
  string(REPLACE "\n" "\\n\"\n\"" text "${text}")

  set(opening "Q_CLASSINFO(\"D-Bus Introspection\", \"\"")
  file(READ ${BASE}.h header)
  string(FIND "${header}" "${opening}" start)
  string(FIND "${header}" "public:\n" end)
  if(start EQUAL -1 OR end EQUAL -1)
    message(FATAL_ERROR "${GENERATOR} writes adaptors in a form that this script does not know")
  endif()
  string(SUBSTRING "${header}" 0 ${start} before)
  string(SUBSTRING "${header}" ${end} -1 after)
  file(WRITE ${BASE}.h "${before}Q_CLASSINFO(\"D-Bus Introspection\",\n\"${text}\")\n${after}")
endif()

# A proxy fetches further out arguments with qdbus_cast, which aborts the process on a structure or array where a basic
# type should be. All of them are basic types here, for which qvariant_cast does the same, and yields the type's default
# for whatever else a peer may answer.
if(MODE STREQUAL proxy)
  file(READ ${BASE}.h header)
  string(REPLACE "qdbus_cast<" "qvariant_cast<" header "${header}")
  file(WRITE ${BASE}.h "${header}")
endif()
