# Binary packages with CPack. On Linux, `cpack -G DEB` in a build directory
# makes three Debian packages: libzynetwork<major> (the shared library),
# libzynetwork-dev (headers, link library, CMake and pkg-config files) and
# zynet (the command-line tool). Elsewhere the default is a ZIP of the same
# components.
set(CPACK_PACKAGE_NAME zynetwork)
set(CPACK_PACKAGE_VENDOR "ZyNetwork developers")
set(CPACK_PACKAGE_CONTACT "ZyNetwork developers <zynetwork@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Networking utility library: sockets, addresses, selector, ping")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VERSION_MAJOR ${PROJECT_VERSION_MAJOR})
set(CPACK_PACKAGE_VERSION_MINOR ${PROJECT_VERSION_MINOR})
set(CPACK_PACKAGE_VERSION_PATCH ${PROJECT_VERSION_PATCH})
set(CPACK_RESOURCE_FILE_README ${CMAKE_SOURCE_DIR}/README.md)
set(CPACK_COMPONENTS_ALL runtime dev tool)
set(CPACK_STRIP_FILES ON)

if(WIN32)
  set(CPACK_GENERATOR ZIP)
  set(CPACK_ARCHIVE_COMPONENT_INSTALL OFF)
else()
  set(CPACK_GENERATOR DEB)
endif()

set(ZYNET_DEB_RUNTIME libzynetwork${PROJECT_VERSION_MAJOR})
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${ZYNET_DEB_RUNTIME})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_GENERATE_SHLIBS ON)
# libcurl is loaded at run time, so shlibdeps cannot see it: without it the
# transfer functions return their fallbacks.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_RECOMMENDS "libcurl4")
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION
  "ZyNetwork shared library\n Sockets as flat functions and classes (IPv4, IPv6, Unix-domain, time limits),\n a selector, an address class with CIDR helpers and interface lists, an\n address blacklist and an ICMP ping client.")
set(CPACK_DEBIAN_DEV_PACKAGE_NAME libzynetwork-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${ZYNET_DEB_RUNTIME} (= ${PROJECT_VERSION}), libboost-dev, libcurl4-openssl-dev | libcurl-dev")
set(CPACK_DEBIAN_DEV_DESCRIPTION
  "ZyNetwork development files\n Headers, the link library, the CMake package (find_package(ZyNetwork CONFIG))\n and the pkg-config file (zynetwork).")
set(CPACK_DEBIAN_TOOL_PACKAGE_NAME zynet)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION net)
# The tool carries the library and the C++ runtime inside it (a small
# transfer then starts as fast as the curl tool's), so it needs only libc;
# like the library it loads libcurl at run time.
set(CPACK_DEBIAN_TOOL_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TOOL_PACKAGE_RECOMMENDS "libcurl4")
set(CPACK_DEBIAN_TOOL_DESCRIPTION
  "ZyNetwork command-line tool\n zynet: a tour of the library on loopback, name resolution, addresses,\n interfaces, CIDR blocks, stack probes, blacklist files, ping, and HTTP, FTP\n and SFTP transfers through libcurl.")

include(CPack)
cpack_add_component(runtime DISPLAY_NAME "Shared library")
cpack_add_component(dev DISPLAY_NAME "Development files" DEPENDS runtime)
cpack_add_component(tool DISPLAY_NAME "Command-line tool")
