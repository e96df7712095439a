# Debian packages from the install rules, one per component (cpack -G DEB in the build tree):
#   libkiv-nm       the three libraries (and the tracepoint provider)
#   libkiv-nm-dev   headers, the CMake package and kiv-nm.pc
#   kiv-nm-tools    kivnm-host with its systemd unit, and kivnm
# for the build's architecture: that of this machine, or the target's when cross-compiled.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kiv-nm)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Notification manager for the processes of one machine")
set(CPACK_PACKAGE_CONTACT "Kiv notification manager developers <kiv-nm@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL Runtime Development)
if(KIV_BUILD_TOOLS)
  list(APPEND CPACK_COMPONENTS_ALL Tools)
endif()
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)

if(CMAKE_CROSSCOMPILING)
  if(NOT KIV_DEB_ARCHITECTURE)
    message(FATAL_ERROR "KIV_DEB_ARCHITECTURE (the Debian name of the target) must be set when cross-compiling")
  endif()
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${KIV_DEB_ARCHITECTURE})
endif()

# Debian's names of what the libraries and programs are linked with; written out rather than found by
# dpkg-shlibdeps, which doesn't look at a cross-compiled tree.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libkiv-nm)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "libc6, libstdc++6, libfmt9, libspdlog1.10, libxml2")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libkiv-nm-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libkiv-nm (= ${PROJECT_VERSION}), libfmt-dev, libboost-dev")
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME kiv-nm-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libkiv-nm (= ${PROJECT_VERSION}), libsystemd0")

include(CPack)
