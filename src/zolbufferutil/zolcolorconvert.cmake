# Colour conversion: the row walk, the portable kernels and, per target, the SIMD kernels with
# the file that chooses among them. All of it keeps -ffp-contract=off (set on zoltools_obj): the
# double formulas must round exactly as written, in every file.
target_sources(zoltools_obj PRIVATE
    ${CMAKE_CURRENT_LIST_DIR}/zolcolorconvert.cpp
    ${CMAKE_CURRENT_LIST_DIR}/zolcolorconvert_scalar.cpp)

if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|amd64)$")
    set(_zol_cc ${CMAKE_CURRENT_LIST_DIR}/zolcolorconvert)
    target_sources(zoltools_obj PRIVATE
        ${_zol_cc}_dispatch_x86.cpp
        ${_zol_cc}_sse41.cpp
        ${_zol_cc}_avx2.cpp
        ${_zol_cc}_avx512.cpp)
    # Source properties are per directory: set them where zoltools_obj is defined.
    set_source_files_properties(${_zol_cc}_sse41.cpp TARGET_DIRECTORY zoltools_obj
        PROPERTIES COMPILE_OPTIONS "-msse4.1")
    set_source_files_properties(${_zol_cc}_avx2.cpp TARGET_DIRECTORY zoltools_obj
        PROPERTIES COMPILE_OPTIONS "-mavx2")
    # GCC 12's AVX-512 headers seed their "undefined" vectors from themselves, which its own
    # -Wuninitialized flags once inlined (GCC bug 105593); nothing of ours is uninitialised.
    set_source_files_properties(${_zol_cc}_avx512.cpp TARGET_DIRECTORY zoltools_obj
        PROPERTIES COMPILE_OPTIONS
        "-mavx512f;-mavx512bw;-mavx512dq;-mavx512vnni;-Wno-uninitialized;-Wno-maybe-uninitialized")
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64|ARM64)$")
    # NEON is part of every AArch64 CPU: no flags, no run-time choice.
    target_sources(zoltools_obj PRIVATE
        ${CMAKE_CURRENT_LIST_DIR}/zolcolorconvert_dispatch_arm64.cpp
        ${CMAKE_CURRENT_LIST_DIR}/zolcolorconvert_neon.cpp)
else()
    target_sources(zoltools_obj PRIVATE ${CMAKE_CURRENT_LIST_DIR}/zolcolorconvert_dispatch_generic.cpp)
endif()
