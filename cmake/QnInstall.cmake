# What `cmake --install` and `cpack` give: headers, both libraries, the program with its manual page and completion,
# the package files of CMake and pkg-config. Nothing installed names the prefix, so that the tree can be moved.
include(CMakePackageConfigHelpers)

set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/qn_sds")
set(header_dir "${CMAKE_INSTALL_INCLUDEDIR}/qn_sds")

install(
    TARGETS qn_sds qn_host
    EXPORT qn_sds_targets
    LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}")
if(TARGET sds)
    install(TARGETS sds RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
    install(DIRECTORY "${PROJECT_BINARY_DIR}/share/" DESTINATION "${CMAKE_INSTALL_DATADIR}")
endif()

# The classes, the three functions and the records that their headers name; rules and kernels stay at home.
file(GLOB module_headers CONFIGURE_DEPENDS RELATIVE "${PROJECT_SOURCE_DIR}" "sds/*/sds_*.h")
list(APPEND module_headers sds/intersection/bezier_intersection.h sds/common/half_edge.h)
foreach(header IN LISTS module_headers)
    cmake_path(GET header PARENT_PATH folder)
    install(FILES "${PROJECT_SOURCE_DIR}/${header}" DESTINATION "${header_dir}/${folder}")
endforeach()
install(DIRECTORY "${PROJECT_SOURCE_DIR}/host/" DESTINATION "${header_dir}/host" FILES_MATCHING PATTERN "*.h")

install(EXPORT qn_sds_targets NAMESPACE qn_sds:: DESTINATION "${package_dir}")
configure_package_config_file(
    "${PROJECT_SOURCE_DIR}/cmake/qn_sds-config.cmake.in" "${PROJECT_BINARY_DIR}/qn_sds-config.cmake"
    INSTALL_DESTINATION "${package_dir}"
    NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/qn_sds-config-version.cmake" COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/qn_sds-config.cmake" "${PROJECT_BINARY_DIR}/qn_sds-config-version.cmake"
        DESTINATION "${package_dir}")

# pkg-config finds the prefix from where its own file lies.
file(RELATIVE_PATH pc_to_prefix "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" pc_to_prefix "${pc_to_prefix}")
if(QN_SIMD_SCALAR)
    set(pc_definitions "-DQN_SIMD_SCALAR=1")
endif()
configure_file("${PROJECT_SOURCE_DIR}/cmake/qn_sds.pc.in" "${PROJECT_BINARY_DIR}/qn_sds.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/qn_sds.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")

install(FILES "${PROJECT_SOURCE_DIR}/LICENSE" DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/qn-sds" RENAME copyright)

if(PROJECT_IS_TOP_LEVEL)
    # cpack packs what is built and builds nothing itself.
    set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY TRUE CACHE INTERNAL "")
    set(CPACK_GENERATOR DEB)
    set(CPACK_PACKAGE_NAME qn-sds)
    set(CPACK_PACKAGE_VENDOR "the qn_sds authors")
    set(CPACK_PACKAGE_CONTACT "the qn_sds authors <nobody@localhost>")
    set(CPACK_PACKAGING_INSTALL_PREFIX "/usr")
    set(CPACK_STRIP_FILES TRUE)
    set(CPACK_PRE_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/cmake/open_folders.cmake")
    set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
    set(CPACK_DEBIAN_PACKAGE_SECTION libdevel)
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS TRUE)
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}/${CMAKE_INSTALL_LIBDIR}")
    set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS TRUE)
    include(CPack)
endif()
