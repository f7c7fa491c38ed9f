# cmake --install: the library, its public headers and a CMake package, so that a consumer
# writes find_package(zoltools), links zoltools::zoltools and includes "zolthreadpool.h".
include(CMakePackageConfigHelpers)

install(TARGETS zoltools EXPORT zoltoolsTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zoltools)

# Public headers: each unit's own header, plus the few headers they include.
foreach(unit IN LISTS ZOL_UNITS)
    install(FILES src/${unit}/${unit}.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zoltools)
endforeach()
install(FILES
    src/zoltoolsdef/zolexport.h
    src/zolbuffermanager/zolimagebuffer.h
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zoltools)
install(DIRECTORY src/platform/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zoltools)

install(EXPORT zoltoolsTargets NAMESPACE zoltools::
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zoltools)
configure_package_config_file(cmake/zoltoolsConfig.cmake.in
    ${CMAKE_CURRENT_BINARY_DIR}/zoltoolsConfig.cmake
    INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zoltools)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/zoltoolsConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES
    ${CMAKE_CURRENT_BINARY_DIR}/zoltoolsConfig.cmake
    ${CMAKE_CURRENT_BINARY_DIR}/zoltoolsConfigVersion.cmake
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zoltools)
