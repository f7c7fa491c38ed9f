# Warnings and sanitizers, in one place for every target of the project.
find_package(Threads REQUIRED)

set(ZOL_WARNING_FLAGS -Wall -Wextra)
# clang checks every access to a guarded member against its lock (the annotations of
# zolmutex.h). GCC-only switches given to a few sources (the AVX-512 kernels) are no error here.
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    list(APPEND ZOL_WARNING_FLAGS -Wthread-safety -Wno-unknown-warning-option)
endif()
if(ZOL_WERROR)
    list(APPEND ZOL_WARNING_FLAGS -Werror)
endif()

if(ZOL_SANITIZE)
    string(REPLACE ";" "," _zol_san "${ZOL_SANITIZE}")
    # Sanitizers apply to everything built here, tests and benchmarks included.
    add_compile_options(-fsanitize=${_zol_san} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${_zol_san})
endif()

# zol_target_flags(<target>): the project's warning set for one of its own targets.
function(zol_target_flags target)
    target_compile_options(${target} PRIVATE ${ZOL_WARNING_FLAGS})
endfunction()
