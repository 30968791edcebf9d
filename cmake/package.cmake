# What `cmake --install` and `cpack` do.
include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

install(TARGETS nivur EXPORT nivurTargets INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
foreach(header IN LISTS NIVUR_PUBLIC_HEADERS)
  install(FILES src/${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/nivur)
endforeach()

install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/nivur)
configure_package_config_file(cmake/nivurConfig.cmake.in nivurConfig.cmake
  INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(nivurConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/nivurConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/nivurConfigVersion.cmake DESTINATION ${package_dir})
install(EXPORT nivurTargets NAMESPACE NIVUR:: DESTINATION ${package_dir})

# Found from where the file is, so that the tree may be installed or unpacked anywhere.
set(NIVUR_PC_PREFIX ${CMAKE_INSTALL_PREFIX})
if(NOT IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  file(RELATIVE_PATH up /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
  string(REGEX REPLACE "/$" "" NIVUR_PC_PREFIX "\${pcfiledir}/${up}")
endif()
cmake_path(ABSOLUTE_PATH CMAKE_INSTALL_LIBDIR BASE_DIRECTORY "\${prefix}" OUTPUT_VARIABLE NIVUR_PC_LIBDIR)
cmake_path(ABSOLUTE_PATH CMAKE_INSTALL_INCLUDEDIR BASE_DIRECTORY "\${prefix}" OUTPUT_VARIABLE NIVUR_PC_INCLUDEDIR)
configure_file(cmake/nivur.pc.in nivur.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/nivur.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(NOT PROJECT_IS_TOP_LEVEL)
  return()
endif()
set(CPACK_PACKAGE_CONTACT "the nivur developers <nivur@example.org>")
set(CPACK_RESOURCE_FILE_LICENSE ${CMAKE_CURRENT_SOURCE_DIR}/LICENSE)
set(CPACK_GENERATOR DEB)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_NAME libnivur-dev)
set(CPACK_DEBIAN_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_SOURCE_GENERATOR TGZ)
set(CPACK_SOURCE_PACKAGE_FILE_NAME nivur-${PROJECT_VERSION})
set(CPACK_SOURCE_IGNORE_FILES ^${CMAKE_CURRENT_SOURCE_DIR}/build/ "/[.]git(/|$)" /[.]cache/ "[.]swp$")
include(CPack)
