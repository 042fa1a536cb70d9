# Install rules: the library, its headers, a CMake package and a pkg-config
# file.
include(CMakePackageConfigHelpers)

install(TARGETS ZyNetwork EXPORT ZyNetworkTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

file(GLOB ZYNET_PUBLIC_HEADERS ${CMAKE_SOURCE_DIR}/ZyNetwork/*.h)
list(FILTER ZYNET_PUBLIC_HEADERS EXCLUDE REGEX "/Os[A-Za-z]*\\.h$")
file(GLOB ZYUTILS_PUBLIC_HEADERS ${CMAKE_SOURCE_DIR}/ZyUtils/*.h)
install(FILES ${ZYNET_PUBLIC_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ZyNetwork COMPONENT dev)
install(FILES ${ZYUTILS_PUBLIC_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ZyUtils COMPONENT dev)

set(ZYNET_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/ZyNetwork)
install(EXPORT ZyNetworkTargets NAMESPACE ZyNetwork:: DESTINATION ${ZYNET_CMAKE_DIR} COMPONENT dev)
configure_package_config_file(${CMAKE_SOURCE_DIR}/cmake/ZyNetworkConfig.cmake.in
  ${CMAKE_BINARY_DIR}/ZyNetworkConfig.cmake INSTALL_DESTINATION ${ZYNET_CMAKE_DIR})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/ZyNetworkConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/ZyNetworkConfig.cmake ${CMAKE_BINARY_DIR}/ZyNetworkConfigVersion.cmake
  DESTINATION ${ZYNET_CMAKE_DIR} COMPONENT dev)

if(WIN32)
  set(ZYNET_PC_LIBS_PRIVATE "-lws2_32 -liphlpapi -lwinhttp -lwininet -ladvapi32")
  set(ZYNET_PC_CFLAGS "-D_WIN32_WINNT=0x0A00 -DWIN32_LEAN_AND_MEAN -DNOMINMAX")
else()
  set(ZYNET_PC_LIBS_PRIVATE "-lpthread -ldl")
  set(ZYNET_PC_CFLAGS "")
endif()
configure_file(${CMAKE_SOURCE_DIR}/cmake/zynetwork.pc.in ${CMAKE_BINARY_DIR}/zynetwork.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/zynetwork.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
