# An annotation in the phone's description has the name that Qt 4 gave it. That name is part of the contract, but makes
# qdbusxml2cpp print remarks.

# kova_current_annotations(<variable>): gives the annotations in a description's text their current names.
function(kova_current_annotations variable)
  string(REPLACE com.trolltech.QtDBus.QtTypeName.In1 org.qtproject.QtDBus.QtTypeName.Out1 text "${${variable}}")
  set(${variable} "${text}" PARENT_SCOPE)
endfunction()
