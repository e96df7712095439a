# Installs the three libraries, their public headers, a CMake package (find_package(KivNm CONFIG)) with
# the imported targets KivNm::Commons, KivNm::Tul and KivNm::Nm, and a pkg-config file kiv-nm.pc. The
# components are the packages of cmake/KivPackaging.cmake: Runtime (the libraries), Development (the
# rest of this file) and Tools (tools/).
include(CMakePackageConfigHelpers)

set(KIV_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/KivNm)

set_target_properties(KivCommons PROPERTIES EXPORT_NAME Commons)
set_target_properties(KivTul PROPERTIES EXPORT_NAME Tul)
set_target_properties(KivNm PROPERTIES EXPORT_NAME Nm)
# The libraries find each other next to themselves, wherever the prefix is moved.
set_target_properties(KivCommons KivTul KivNm PROPERTIES INSTALL_RPATH "$ORIGIN")

install(TARGETS KivCommons KivTul KivNm
        EXPORT KivNmTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Runtime NAMELINK_COMPONENT Development)
if(TARGET KivNmTracepointProvider)
  # Loaded by a process that is to be traced (LD_PRELOAD), never linked, so not part of the package.
  install(TARGETS KivNmTracepointProvider LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Runtime)
endif()

install(DIRECTORY ${PROJECT_SOURCE_DIR}/Platform/Commons/include/ ${PROJECT_SOURCE_DIR}/Platform/Tul/include/
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT Development)

# Of Nm/, the public headers that Nm/CMakeLists.txt names; the rest of Nm/ stays private.
foreach(header IN LISTS KIV_NM_PUBLIC_HEADERS)
  file(RELATIVE_PATH relative ${PROJECT_SOURCE_DIR} ${header})
  get_filename_component(directory ${relative} DIRECTORY)
  install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${directory} COMPONENT Development)
endforeach()

install(EXPORT KivNmTargets NAMESPACE KivNm:: DESTINATION ${KIV_INSTALL_CMAKEDIR} COMPONENT Development)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/KivNmConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/KivNmConfig.cmake
                              INSTALL_DESTINATION ${KIV_INSTALL_CMAKEDIR})
# Before 1.0 a minor version may change the interface.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/KivNmConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/KivNmConfig.cmake ${PROJECT_BINARY_DIR}/KivNmConfigVersion.cmake
        DESTINATION ${KIV_INSTALL_CMAKEDIR} COMPONENT Development)

# spdlog and libxml2 are linked into the shared libraries and appear in no public header.
file(RELATIVE_PATH KIV_PC_PREFIX_FROM_PCFILEDIR /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
string(REGEX REPLACE "/$" "" KIV_PC_PREFIX_FROM_PCFILEDIR ${KIV_PC_PREFIX_FROM_PCFILEDIR})
configure_file(${CMAKE_CURRENT_LIST_DIR}/kiv-nm.pc.in ${PROJECT_BINARY_DIR}/kiv-nm.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kiv-nm.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT Development)
