# The library, its header, the program, a CMake package and a pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS libtarvo EXPORT tarvoTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        PUBLIC_HEADER DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
if(TARGET tarvo_app)
  install(TARGETS tarvo_app RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  set_target_properties(tarvo_app PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
endif()

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/tarvo)
install(EXPORT tarvoTargets NAMESPACE tarvo:: DESTINATION ${package_dir})
configure_package_config_file(${CMAKE_SOURCE_DIR}/cmake/tarvoConfig.cmake.in ${CMAKE_BINARY_DIR}/tarvoConfig.cmake
                              INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/tarvoConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/tarvoConfig.cmake ${CMAKE_BINARY_DIR}/tarvoConfigVersion.cmake
        DESTINATION ${package_dir})
configure_file(${CMAKE_SOURCE_DIR}/cmake/tarvo.pc.in ${CMAKE_BINARY_DIR}/tarvo.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/tarvo.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
