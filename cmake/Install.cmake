# What `cmake --install` puts under the prefix:
#   bin/                      velmorin-chat-server, qxvc-phone, qxvc-demo
#   include/                  VelmorinVideoChat/ VelmorinGStreamer/ VelmorinChat/ VelmorinService/
#   lib/                      one library per component
#   lib/cmake/VelmorinVideoChat/   the CMake package, one targets file per component
#   lib/pkgconfig/            one pkg-config file per library
# Nothing installed names an absolute path of the build or of the prefix: the
# prefix can be moved.
include(CMakePackageConfigHelpers)

set(VELMORIN_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/VelmorinVideoChat)
if(BUILD_SHARED_LIBS)
  set(VELMORIN_PACKAGE_STATIC FALSE)
else()
  set(VELMORIN_PACKAGE_STATIC TRUE)
endif()

# velmorin_install_library(<target> <export name> <headers or header folders>...)
# installs the library as VelmorinVideoChat::<export name>, in an export set of
# its own so that an application loads only the components it asks for.
function(velmorin_install_library target export_name)
  if(NOT TARGET ${target})
    return()
  endif()
  set_target_properties(${target} PROPERTIES EXPORT_NAME ${export_name}
    VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
  if(BUILD_SHARED_LIBS)
    # A shared library finds the ones it stands on beside it, wherever the prefix is.
    set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN")
  endif()
  if(export_name STREQUAL "VelmorinVideoChat")
    set(export_set VelmorinVideoChatTargets)
  else()
    set(export_set VelmorinVideoChat${export_name}Targets)
  endif()
  install(TARGETS ${target} EXPORT ${export_set}
          ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
          LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
          RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
          INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  install(EXPORT ${export_set} NAMESPACE VelmorinVideoChat:: DESTINATION ${VELMORIN_CMAKE_DIR})
  foreach(header ${ARGN})
    if(IS_DIRECTORY ${header})
      install(DIRECTORY ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
    else()
      get_filename_component(folder ${header} DIRECTORY)
      get_filename_component(folder ${folder} NAME)
      install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${folder})
    endif()
  endforeach()
endfunction()

# The pkg-config file finds its prefix from where it lies (${pcfiledir}).
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(VELMORIN_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
else()
  set(VELMORIN_PC_PREFIX "\${pcfiledir}")
  string(REPLACE "/" ";" libdir_parts "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
  foreach(part ${libdir_parts})
    string(APPEND VELMORIN_PC_PREFIX "/..")
  endforeach()
endif()

# velmorin_pkg_config(<library> DESCRIPTION text [REQUIRES modules] [LIBS flags]
#                     [DEPENDS modules] [DEPENDS_LIBS flags])
# REQUIRES and LIBS are what an application compiles against; DEPENDS and
# DEPENDS_LIBS are what the library itself links. A static library carries
# those to the application's link, so they are public there: the file links
# as it is, without --static.
function(velmorin_pkg_config library)
  cmake_parse_arguments(PC "" "DESCRIPTION" "REQUIRES;LIBS;DEPENDS;DEPENDS_LIBS" ${ARGN})
  if(NOT TARGET ${library})
    return()
  endif()
  set(VELMORIN_PC_NAME ${library})
  set(VELMORIN_PC_DESCRIPTION ${PC_DESCRIPTION})
  set(requires ${PC_REQUIRES})
  set(libs ${PC_LIBS})
  set(requires_private "")
  set(libs_private "")
  if(VELMORIN_PACKAGE_STATIC)
    list(PREPEND requires ${PC_DEPENDS})
    list(APPEND libs ${PC_DEPENDS_LIBS})
  else()
    list(APPEND requires_private ${PC_DEPENDS})
    list(APPEND libs_private ${PC_DEPENDS_LIBS})
  endif()
  list(JOIN requires " " VELMORIN_PC_REQUIRES)
  list(JOIN requires_private " " VELMORIN_PC_REQUIRES_PRIVATE)
  list(JOIN libs " " VELMORIN_PC_LIBS)
  list(JOIN libs_private " " VELMORIN_PC_LIBS_PRIVATE)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/velmorin.pc.in
                 ${PROJECT_BINARY_DIR}/pkgconfig/${library}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/pkgconfig/${library}.pc
          DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endfunction()

set(chat_headers ${PROJECT_SOURCE_DIR}/adapters/chat/include/VelmorinChat)
velmorin_install_library(velmorin_videochat VelmorinVideoChat
  ${PROJECT_SOURCE_DIR}/include/VelmorinVideoChat)
velmorin_install_library(velmorin_service Service
  ${PROJECT_SOURCE_DIR}/service/include/VelmorinService)
velmorin_install_library(velmorin_chat_inprocess InProcessChat
  ${chat_headers}/QXDInProcessChatClient.h)
velmorin_install_library(velmorin_chat_websocket WebSocketChat
  ${chat_headers}/QXDWebSocketChatClient.h)
velmorin_install_library(velmorin_gstreamer GStreamer
  ${PROJECT_SOURCE_DIR}/adapters/gstreamer/include/VelmorinGStreamer)

velmorin_pkg_config(velmorin_videochat
  DESCRIPTION "One-to-one audio and video calls signalled over Velmorin chat"
  REQUIRES nlohmann_json LIBS -pthread
  DEPENDS zlib libpng libcrypto DEPENDS_LIBS -lyuv)
velmorin_pkg_config(velmorin_service
  DESCRIPTION "The Velmorin chat service: users, channels and their part in calls"
  REQUIRES velmorin_videochat DEPENDS libcrypto)
velmorin_pkg_config(velmorin_chat_inprocess
  DESCRIPTION "VelmorinVideoChat's chat port over the Velmorin service, in process"
  REQUIRES velmorin_service velmorin_videochat)
velmorin_pkg_config(velmorin_chat_websocket
  DESCRIPTION "VelmorinVideoChat's chat port over WebSocket, to velmorin-chat-server"
  REQUIRES velmorin_videochat LIBS -pthread DEPENDS velmorin_service)
velmorin_pkg_config(velmorin_gstreamer
  DESCRIPTION "VelmorinVideoChat's media engine over GStreamer webrtcbin"
  REQUIRES velmorin_videochat LIBS -pthread DEPENDS ${VELMORIN_GST_PKG_MODULES} libcrypto)

foreach(program velmorin-chat-server qxvc-phone qxvc-demo)
  if(TARGET ${program})
    install(TARGETS ${program} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
    if(BUILD_SHARED_LIBS)
      # The installed programs find the installed libraries from where they lie.
      set_target_properties(${program} PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
    endif()
  endif()
endforeach()

configure_package_config_file(cmake/VelmorinVideoChatConfig.cmake.in
  ${PROJECT_BINARY_DIR}/VelmorinVideoChatConfig.cmake INSTALL_DESTINATION ${VELMORIN_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/VelmorinVideoChatConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/VelmorinVideoChatConfig.cmake
              ${PROJECT_BINARY_DIR}/VelmorinVideoChatConfigVersion.cmake
              ${PROJECT_SOURCE_DIR}/cmake/FindLibYUV.cmake
        DESTINATION ${VELMORIN_CMAKE_DIR})
