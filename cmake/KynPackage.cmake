# Installs the CMake package (find_package(Kyn CONFIG) gives Kyn::kyn) and kyn.pc.
include(CMakePackageConfigHelpers)
set(KYN_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Kyn)

install(EXPORT KynTargets NAMESPACE Kyn:: DESTINATION ${KYN_CMAKE_DIR})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/KynConfig.cmake.in
    ${CMAKE_CURRENT_BINARY_DIR}/KynConfig.cmake
    INSTALL_DESTINATION ${KYN_CMAKE_DIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/KynConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/KynConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/KynConfigVersion.cmake
    DESTINATION ${KYN_CMAKE_DIR})

# kyn.pc finds its prefix from where it lies, so that an installation can be moved.
file(RELATIVE_PATH KYN_PC_TO_PREFIX "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" KYN_PC_TO_PREFIX "${KYN_PC_TO_PREFIX}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/kyn.pc.in ${CMAKE_CURRENT_BINARY_DIR}/kyn.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/kyn.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
