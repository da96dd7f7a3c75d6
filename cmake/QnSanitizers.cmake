# Instruments a target with QN_SANITIZE. Suppressions live in cmake/sanitizer_suppressions; the test presets name them.
function(qn_sanitize_target target)
    if(NOT QN_SANITIZE)
        return()
    endif()
    set(flags "-fsanitize=${QN_SANITIZE}" -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_compile_options(${target} PRIVATE ${flags})
    target_link_options(${target} PRIVATE ${flags})
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        # The instrumented control flow makes g++ 12 report these where nothing is wrong.
        target_compile_options(
            ${target} PRIVATE -Wno-maybe-uninitialized -Wno-error=array-bounds -Wno-error=stringop-overflow
                              -Wno-error=stringop-overread -Wno-error=null-dereference)
    endif()
endfunction()
