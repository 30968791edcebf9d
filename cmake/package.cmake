# `cmake --install`. The component `runtime` has what linked programs need, `dev` what is needed to link
# them.
include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

install(TARGETS nivur EXPORT nivurTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
foreach(header IN LISTS NIVUR_PUBLIC_HEADERS)
  install(FILES src/${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/nivur COMPONENT dev)
endforeach()
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/nivur)
configure_package_config_file(cmake/nivurConfig.cmake.in nivurConfig.cmake
  INSTALL_DESTINATION ${package_dir})
set(compatible SameMajorVersion)
if(PROJECT_VERSION_MAJOR EQUAL 0)
  set(compatible SameMinorVersion)
endif()
write_basic_package_version_file(nivurConfigVersion.cmake COMPATIBILITY ${compatible})
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/nivurConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/nivurConfigVersion.cmake DESTINATION ${package_dir} COMPONENT dev)
install(EXPORT nivurTargets NAMESPACE NIVUR:: DESTINATION ${package_dir} COMPONENT dev)

# Paths are relative to this file, so that the tree may be moved.
set(NIVUR_PC_PREFIX ${CMAKE_INSTALL_PREFIX})
if(NOT IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  file(RELATIVE_PATH up /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
  string(REGEX REPLACE "/$" "" NIVUR_PC_PREFIX "\${pcfiledir}/${up}")
endif()
foreach(folder LIBDIR INCLUDEDIR)
  set(NIVUR_PC_${folder} ${CMAKE_INSTALL_${folder}})
  if(NOT IS_ABSOLUTE "${CMAKE_INSTALL_${folder}}")
    set(NIVUR_PC_${folder} "\${prefix}/${CMAKE_INSTALL_${folder}}")
  endif()
endforeach()
if(atomics)
  set(NIVUR_PC_ATOMICS " -latomic")
endif()
configure_file(cmake/nivur.pc.in nivur.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/nivur.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT dev)
