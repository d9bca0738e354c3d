# What `cmake --install` puts in place: the library, the public headers, the programs, the documents, and
# what lets other projects find them (find_package and pkg-config). `--component` takes one of runtime,
# development, programs and documentation.
include(CMakePackageConfigHelpers)
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME development)

function(vintok_install_library target export)
  install(TARGETS ${target} EXPORT ${export}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
endfunction()
vintok_install_library(vintok vintokTargets)

get_property(headers GLOBAL PROPERTY vintok_public_headers)
list(TRANSFORM headers PREPEND ${PROJECT_SOURCE_DIR}/src/)
install(FILES ${headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vintok)
get_property(headers GLOBAL PROPERTY vintok_c_public_headers)
list(TRANSFORM headers PREPEND ${PROJECT_SOURCE_DIR}/src/)
install(FILES ${headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vintok-c)

# What an archive leaves to who links it.
get_target_property(library_type vintok TYPE)
set(static_definition)
set(static_libraries)
if(library_type STREQUAL STATIC_LIBRARY)
  set(static_definition -DVINTOK_STATIC)
  set(static_libraries -pthread)
  if(WIN32)
    set(static_libraries "-lws2_32 -liphlpapi -lsynchronization -pthread")
  endif()
endif()

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/vintok)
install(EXPORT vintokTargets NAMESPACE vintok:: DESTINATION ${package_dir})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/vintokConfig.cmake.in
  ${PROJECT_BINARY_DIR}/vintokConfig.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vintokConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/vintokConfig.cmake ${PROJECT_BINARY_DIR}/vintokConfigVersion.cmake
  DESTINATION ${package_dir})

if(TARGET vintok_tls)
  vintok_install_library(vintok_tls vintokTlsTargets)
  get_property(headers GLOBAL PROPERTY vintok_tls_public_headers)
  list(TRANSFORM headers PREPEND ${PROJECT_SOURCE_DIR}/src/)
  install(FILES ${headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vintok-tls)
  get_property(headers GLOBAL PROPERTY vintok_tls_c_public_headers)
  list(TRANSFORM headers PREPEND ${PROJECT_SOURCE_DIR}/src/)
  install(FILES ${headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vintok-c)
  install(EXPORT vintokTlsTargets NAMESPACE vintok:: DESTINATION ${package_dir})
endif()

if(TARGET vintok_cluster)
  vintok_install_library(vintok_cluster vintokClusterTargets)
  get_property(headers GLOBAL PROPERTY vintok_cluster_public_headers)
  list(TRANSFORM headers PREPEND ${PROJECT_SOURCE_DIR}/src/)
  install(FILES ${headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vintok-cluster)
  install(EXPORT vintokClusterTargets NAMESPACE vintok:: DESTINATION ${package_dir})
endif()

# The prefix in the pkg-config file follows from where the file lies, so that the tree can be moved.
file(RELATIVE_PATH prefix_from_pkgconfig
  ${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(${PROJECT_SOURCE_DIR}/cmake/vintok.pc.in ${PROJECT_BINARY_DIR}/vintok.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vintok.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(TARGET vintok_tls)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/vintok-tls.pc.in ${PROJECT_BINARY_DIR}/vintok-tls.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/vintok-tls.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endif()

if(TARGET vintok_cluster)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/vintok-cluster.pc.in
    ${PROJECT_BINARY_DIR}/vintok-cluster.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/vintok-cluster.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endif()

foreach(program vintok_program ConferenceControl multiplexer)
  if(TARGET ${program})
    install(TARGETS ${program} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT programs)
  endif()
endforeach()

install(FILES ${PROJECT_SOURCE_DIR}/README.md
  DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documentation)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs
  DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documentation PATTERN reference EXCLUDE)
install(DIRECTORY ${PROJECT_BINARY_DIR}/reference # where the target `docs` has made it
  DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documentation OPTIONAL)
