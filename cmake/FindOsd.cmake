# Finds OpenSubdiv's CPU library as Osd::osdCPU. The package's own config file names static libraries that Debian
# does not ship, hence this module.
find_path(Osd_INCLUDE_DIR opensubdiv/far/topologyRefiner.h)
find_library(Osd_LIBRARY osdCPU)
mark_as_advanced(Osd_INCLUDE_DIR Osd_LIBRARY)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(Osd REQUIRED_VARS Osd_LIBRARY Osd_INCLUDE_DIR)

if(Osd_FOUND AND NOT TARGET Osd::osdCPU)
    add_library(Osd::osdCPU UNKNOWN IMPORTED)
    set_target_properties(
        Osd::osdCPU PROPERTIES IMPORTED_LOCATION "${Osd_LIBRARY}" INTERFACE_INCLUDE_DIRECTORIES "${Osd_INCLUDE_DIR}")
endif()
