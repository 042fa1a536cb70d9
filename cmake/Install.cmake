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
# DLL holds, and a README for Windows users. The licences are found in the
# source tree that scripts/build-win-curl.sh unpacks beside the DLL
# (src/curl-*/COPYING), or named with ZYNET_WIN_CURL_SOURCE.
if(WIN32)
  install(FILES ${CMAKE_SOURCE_DIR}/packaging/README-Windows.txt DESTINATION . COMPONENT runtime)
endif()
if(WIN32 AND ZYNET_WIN_CURL_DLL)
  set(ZYNET_WIN_CURL_SOURCE "" CACHE PATH "curl source tree that ZYNET_WIN_CURL_DLL was built from")
  set(zynet_curl_source "${ZYNET_WIN_CURL_SOURCE}")
  get_filename_component(zynet_curl_deps "${ZYNET_WIN_CURL_DLL}" DIRECTORY)
  if(NOT zynet_curl_source)
    file(GLOB zynet_curl_sources LIST_DIRECTORIES true "${zynet_curl_deps}/src/curl-*")
    list(FILTER zynet_curl_sources INCLUDE REGEX "/curl-[0-9.]+$")
    list(SORT zynet_curl_sources)
    list(POP_BACK zynet_curl_sources zynet_curl_source)
  endif()
  if(NOT EXISTS "${zynet_curl_source}/COPYING" OR NOT EXISTS "${zynet_curl_source}/include/curl/curl.h")
    message(FATAL_ERROR "No curl source tree with COPYING and include/curl beside ${ZYNET_WIN_CURL_DLL} "
                        "(src/curl-*); set ZYNET_WIN_CURL_SOURCE to the tree the DLL was built from")
  endif()
  install(FILES "${ZYNET_WIN_CURL_DLL}" DESTINATION ${CMAKE_INSTALL_BINDIR} RENAME RKCurl.dll COMPONENT runtime)
  install(FILES "${zynet_curl_source}/COPYING" DESTINATION licenses RENAME curl.txt COMPONENT runtime)
  # libssh2, when the DLL was built with it (ZYNET_WIN_CURL_SSH=1).
  file(GLOB zynet_ssh_licence "${zynet_curl_deps}/src/libssh2-*/COPYING")
  if(zynet_ssh_licence AND EXISTS "${zynet_curl_deps}/libssh2-install/lib/libssh2.a")
    list(GET zynet_ssh_licence 0 zynet_ssh_licence)
    install(FILES "${zynet_ssh_licence}" DESTINATION licenses RENAME libssh2.txt COMPONENT runtime)
  endif()
  install(DIRECTORY "${zynet_curl_source}/include/curl" DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
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
