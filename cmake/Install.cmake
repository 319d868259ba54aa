# Installs the library, its headers, a CMake package and a pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS velmorin_videochat EXPORT VelmorinVideoChatTargets
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY include/VelmorinVideoChat DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT VelmorinVideoChatTargets NAMESPACE VelmorinVideoChat::
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/VelmorinVideoChat)

configure_package_config_file(cmake/VelmorinVideoChatConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/VelmorinVideoChatConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/VelmorinVideoChat)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/VelmorinVideoChatConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/VelmorinVideoChatConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/VelmorinVideoChatConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/VelmorinVideoChat)

configure_file(cmake/velmorin_videochat.pc.in ${CMAKE_CURRENT_BINARY_DIR}/velmorin_videochat.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/velmorin_videochat.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
