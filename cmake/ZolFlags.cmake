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
# The library's own sources are held to more: no shadowed names, no silent narrowing or sign
# change, C++ casts only, and a virtual destructor wherever there are virtual functions.
set(ZOL_LIBRARY_WARNING_FLAGS ${ZOL_WARNING_FLAGS}
    -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast -Wnon-virtual-dtor)

if(ZOL_SANITIZE)
    string(REPLACE ";" "," _zol_san "${ZOL_SANITIZE}")
    # Sanitizers apply to everything built here, tests and benchmarks included.
    add_compile_options(-fsanitize=${_zol_san} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${_zol_san})
endif()

# zol_target_flags(<target> [LIBRARY]): the project's warning set for one of its own targets;
# LIBRARY: the library's stricter set.
function(zol_target_flags target)
    if("LIBRARY" IN_LIST ARGN)
        target_compile_options(${target} PRIVATE ${ZOL_LIBRARY_WARNING_FLAGS})
    else()
        target_compile_options(${target} PRIVATE ${ZOL_WARNING_FLAGS})
    endif()
endfunction()
