# Helpers that every target of this project goes through.

# Sources below `dir` (recursive), re-globbed at build time, so that adding a file needs no edit here.
function(qn_glob out dir)
    file(GLOB_RECURSE sources CONFIGURE_DEPENDS "${dir}/*.cpp")
    set(${out} "${sources}" PARENT_SCOPE)
endfunction()

# Language level, visibility, warnings and floating-point rules; nothing of it reaches a consumer of the target.
function(qn_configure_target target)
    # The build tree is laid out like an installation, so one relative path serves both and either can be moved.
    get_target_property(type ${target} TYPE)
    set(rpath "$ORIGIN")
    if(type STREQUAL "EXECUTABLE")
        set(rpath "$ORIGIN/../${CMAKE_INSTALL_LIBDIR};$ORIGIN") # the second for a folder that holds all
    endif()
    target_compile_features(${target} PUBLIC cxx_std_20)
    set_target_properties(
        ${target}
        PROPERTIES CXX_EXTENSIONS OFF
                   CXX_VISIBILITY_PRESET hidden
                   VISIBILITY_INLINES_HIDDEN ON
                   POSITION_INDEPENDENT_CODE ON
                   RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin"
                   LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/${CMAKE_INSTALL_LIBDIR}"
                   ARCHIVE_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/lib"
                   BUILD_WITH_INSTALL_RPATH ON
                   INSTALL_RPATH "${rpath}")
    # Contraction would make one expression round differently in two translation units, and the controls
    # that two patches share must be the same bits.
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wconversion -Wshadow -ffp-contract=off)
    # Debug information names files from the checkout on: the same bytes wherever it lies. A compiler cache that several
    # checkouts share holds objects of any of them.
    if(NOT "${CMAKE_CXX_COMPILER_LAUNCHER}" MATCHES "ccache")
        target_compile_options(
            ${target} PRIVATE "-ffile-prefix-map=${PROJECT_SOURCE_DIR}=."
                              "-ffile-prefix-map=${PROJECT_BINARY_DIR}=./build")
    endif()
    if(EMSCRIPTEN) # one static file; addresses in it are known
        set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE OFF)
        target_compile_options(${target} PRIVATE -include "${PROJECT_SOURCE_DIR}/web/toolchain/older_library.h")
    endif()
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
        # g++ 12 reports "literal" + std::string as overlapping (its bug 105651).
        target_compile_options(${target} PRIVATE -Wno-restrict)
    endif()
    if(QN_WARNINGS_AS_ERRORS)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
    qn_sanitize_target(${target})
endfunction()

# What turns an overrun into an end: a guard behind arrays on the stack, library calls that know the size they write to,
# and, in what is linked, no table of functions that stays writable. For all that touches files, options and callers'
# arrays; the kernels, which read fixed arrays alone, go without the guards.
function(qn_harden_target target)
    if(QN_SANITIZE OR NOT CMAKE_SYSTEM_NAME STREQUAL "Linux")
        return()
    endif()
    target_compile_options(${target} PRIVATE -fstack-protector-strong -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
    qn_bind_at_start(${target})
endfunction()

function(qn_bind_at_start target)
    if(NOT QN_SANITIZE AND CMAKE_SYSTEM_NAME STREQUAL "Linux")
        target_link_options(${target} PRIVATE -Wl,-z,relro -Wl,-z,now)
    endif()
endfunction()

# Compiles the kernels in `ARGN`, sources of the target as they are, once more for every wider instruction set that the
# processor may have: sds/common/kernel_set.h.
function(qn_add_kernels target)
    if(QN_SIMD_SCALAR OR NOT CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
        return()
    endif()
    set(avx2 -mavx2)
    set(avx512 -mavx2 -mavx512vl -mavx512dq -mprefer-vector-width=256)
    target_compile_definitions(${target} PRIVATE QN_WIDE_KERNELS)
    foreach(source IN LISTS ARGN)
        cmake_path(GET source STEM name)
        foreach(set IN ITEMS avx2 avx512)
            set(copy "${CMAKE_CURRENT_BINARY_DIR}/kernels/${name}_${set}.cpp")
            file(CONFIGURE OUTPUT "${copy}" CONTENT "#include \"${source}\"\n")
            set_source_files_properties("${copy}" PROPERTIES COMPILE_OPTIONS "${${set}}" COMPILE_DEFINITIONS
                                                                                       "QN_KERNEL_SET=${set}")
            target_sources(${target} PRIVATE "${copy}")
        endforeach()
    endforeach()
endfunction()

# Links those of the named targets that exist: a folder without sources yet has no target.
function(qn_link_available target visibility)
    foreach(library IN LISTS ARGN)
        if(TARGET ${library})
            target_link_libraries(${target} ${visibility} ${library})
        endif()
    endforeach()
endfunction()

# One executable, named `name`, linked to those of the libraries ARGN that exist. Put a library before what it uses:
# qn_render, qn_model and qn_io do not choose between the module and its static twin, the executable does.
function(qn_add_executable name sources)
    add_executable(${name} ${sources})
    qn_configure_target(${name})
    qn_link_available(${name} PRIVATE ${ARGN})
    target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}")
endfunction()
