# Colour conversion: exhaustive and random-image comparisons against the plain formulas, for
# every kernel set the machine runs. -ffp-contract=off: the reference must round as written.
zol_add_gtest(NAME colorconvert_test SOURCES ${CMAKE_CURRENT_LIST_DIR}/colorconvert_test.cpp
    INTERNAL)
target_compile_options(colorconvert_test PRIVATE -ffp-contract=off)
