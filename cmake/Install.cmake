# Install rules: the library, its headers, a CMake package and a pkg-config
# file, in three components: runtime (the shared library), dev (headers,
# link library, package files) and tool (zynet, installed by tools/zynet).
include(CMakePackageConfigHelpers)

install(TARGETS ZyNetwork EXPORT ZyNetworkTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

# Public headers only: the top level of ZyNetwork/ and ZyUtils/. Internal
# headers live in subfolders (Internal/, Posix/, Windows/), which a
# non-recursive glob never reaches.
file(GLOB ZYNET_PUBLIC_HEADERS ${CMAKE_SOURCE_DIR}/ZyNetwork/*.h)
file(GLOB ZYUTILS_PUBLIC_HEADERS ${CMAKE_SOURCE_DIR}/ZyUtils/*.h)
# Windows-only public headers (the WinHTTP and WinINet clients) are
# installed on Windows alone.
if(NOT WIN32)
  list(FILTER ZYNET_PUBLIC_HEADERS EXCLUDE REGEX "/ZyHTTP2?\\.h$")
endif()
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

# The pkg-config file names its prefix relative to its own place, so the
# installed tree works wherever it is installed (`cmake --install --prefix`,
# a package, a copied directory).
if(WIN32)
  set(ZYNET_PC_LIBS_PRIVATE "-lws2_32 -liphlpapi -lwinhttp -lwininet -ladvapi32")
  set(ZYNET_PC_CFLAGS "-D_WIN32_WINNT=0x0A00 -DWIN32_LEAN_AND_MEAN -DNOMINMAX")
else()
  set(ZYNET_PC_LIBS_PRIVATE "-lpthread -ldl")
  set(ZYNET_PC_CFLAGS "")
endif()
set(ZYNET_PC_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH ZYNET_PC_TO_PREFIX /prefix/${ZYNET_PC_DIR} /prefix)
string(REGEX REPLACE "/$" "" ZYNET_PC_TO_PREFIX "${ZYNET_PC_TO_PREFIX}")
configure_file(${CMAKE_SOURCE_DIR}/cmake/zynetwork.pc.in ${CMAKE_BINARY_DIR}/zynetwork.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/zynetwork.pc DESTINATION ${ZYNET_PC_DIR} COMPONENT dev)

# The Windows package works on its own: the curl library that every transfer
# loads ("RKCurl.dll", beside ZyNetwork.dll and zynet.exe in bin/), curl's
# headers (the public headers use its types), the licence texts of what the
# DLL holds (curl, libssh2, OpenSSL), and a README for Windows users.
if(WIN32)
  install(FILES ${CMAKE_SOURCE_DIR}/packaging/README-Windows.txt DESTINATION . COMPONENT runtime)
endif()
if(WIN32 AND ZYNET_WIN_CURL_DLL)
  # scripts/build-win-curl.sh leaves curl's headers (include/curl) and the
  # licence texts of what the DLL holds (licenses/*.txt) beside the DLL.
  get_filename_component(zynet_curl_deps "${ZYNET_WIN_CURL_DLL}" DIRECTORY)
  file(GLOB zynet_curl_licences "${zynet_curl_deps}/licenses/*.txt")
  if(NOT EXISTS "${zynet_curl_deps}/licenses/curl.txt" OR NOT EXISTS "${zynet_curl_deps}/include/curl/curl.h")
    message(FATAL_ERROR "No licenses/curl.txt and include/curl beside ${ZYNET_WIN_CURL_DLL}: "
                        "build it with scripts/build-win-curl.sh")
  endif()
  install(FILES "${ZYNET_WIN_CURL_DLL}" DESTINATION ${CMAKE_INSTALL_BINDIR} RENAME RKCurl.dll COMPONENT runtime)
  install(FILES ${zynet_curl_licences} DESTINATION licenses COMPONENT runtime)
  install(DIRECTORY "${zynet_curl_deps}/include/curl" DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
    COMPONENT dev FILES_MATCHING PATTERN "*.h")
endif()

include(${CMAKE_CURRENT_LIST_DIR}/Docs.cmake)
include(${CMAKE_CURRENT_LIST_DIR}/Packaging.cmake)

# ---- zynet's manual page and bash completion ----
# Made at build time by tools/zynet (target zynet-docs) from the tool's own
# table of commands; installed with the tool.
if(TARGET zynet-docs)
  install(FILES ${CMAKE_BINARY_DIR}/tools/zynet/zynet.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tool)
  install(FILES ${CMAKE_BINARY_DIR}/tools/zynet/zynet.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
          RENAME zynet COMPONENT tool)
endif()
