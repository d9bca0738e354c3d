# What `cmake --install` puts in place: the shared library, the public headers, the program, and what lets
# other projects find them (find_package and pkg-config).
include(CMakePackageConfigHelpers)

install(TARGETS vintok EXPORT vintokTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

get_property(headers GLOBAL PROPERTY vintok_public_headers)
list(TRANSFORM headers PREPEND ${PROJECT_SOURCE_DIR}/src/)
install(FILES ${headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vintok)
get_property(headers GLOBAL PROPERTY vintok_c_public_headers)
list(TRANSFORM headers PREPEND ${PROJECT_SOURCE_DIR}/src/)
install(FILES ${headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vintok-c)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/vintok)
install(EXPORT vintokTargets NAMESPACE vintok:: DESTINATION ${package_dir})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/vintokConfig.cmake.in
  ${PROJECT_BINARY_DIR}/vintokConfig.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vintokConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/vintokConfig.cmake ${PROJECT_BINARY_DIR}/vintokConfigVersion.cmake
  DESTINATION ${package_dir})

if(TARGET vintok_tls)
  install(TARGETS vintok_tls EXPORT vintokTlsTargets
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
  get_property(headers GLOBAL PROPERTY vintok_tls_public_headers)
  list(TRANSFORM headers PREPEND ${PROJECT_SOURCE_DIR}/src/)
  install(FILES ${headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vintok-tls)
  get_property(headers GLOBAL PROPERTY vintok_tls_c_public_headers)
  list(TRANSFORM headers PREPEND ${PROJECT_SOURCE_DIR}/src/)
  install(FILES ${headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vintok-c)
  install(EXPORT vintokTlsTargets NAMESPACE vintok:: DESTINATION ${package_dir})
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
