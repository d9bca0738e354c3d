# vintok_import_library(TARGET NAME HEADER...): for compilers that do not take the import library of MinGW,
# NAME.lib and the NAME.def that it is made from, installed with the target. The functions are those that the
# headers for C declare; there is no other list of them.
function(vintok_import_library target name)
  set(functions)
  foreach(header IN LISTS ARGN)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${header})
    file(READ ${header} text)
    string(REGEX MATCHALL "VINTOK_(TLS_)?API [^(;]*vintok_[a-z0-9_]+\\(" declared "${text}")
    list(APPEND functions ${declared})
  endforeach()
  list(TRANSFORM functions REPLACE "^.*(vintok_[a-z0-9_]+)\\($" "    \\1")
  list(JOIN functions "\n" exports)
  set(definition ${CMAKE_CURRENT_BINARY_DIR}/${name}.def)
  set(import ${CMAKE_CURRENT_BINARY_DIR}/${name}.lib)
  file(GENERATE OUTPUT ${definition}
    CONTENT "LIBRARY \"$<TARGET_FILE_NAME:${target}>\"\nEXPORTS\n${exports}\n")
  add_custom_command(OUTPUT ${import}
    COMMAND ${CMAKE_DLLTOOL} -m i386:x86-64 -d ${definition} -l ${import}
    DEPENDS ${definition} VERBATIM)
  add_custom_target(${target}_import ALL DEPENDS ${import})
  if(VINTOK_INSTALL)
    install(FILES ${definition} ${import}
      DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
  endif()
endfunction()
