# cmake --install: the library, its public headers and a CMake package, so that a consumer
# writes find_package(zoltools), links zoltools::zoltools and includes "zolthreadpool.h".
include(CMakePackageConfigHelpers)

install(TARGETS zoltools EXPORT zoltoolsTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zoltools)

# The public headers, at the paths they have in the build tree's include folder.
foreach(header IN LISTS ZOL_PUBLIC_HEADERS)
    zol_public_header_path(path ${header})
    get_filename_component(dir ${CMAKE_INSTALL_INCLUDEDIR}/zoltools/${path} DIRECTORY)
    install(FILES ${header} DESTINATION ${dir})
endforeach()

install(EXPORT zoltoolsTargets NAMESPACE zoltools::
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zoltools)
# The same package from the build tree (find_package with zoltools_DIR=<build dir>), whose
# include folder holds the public headers only, as the installed one does.
export(EXPORT zoltoolsTargets NAMESPACE zoltools:: FILE ${CMAKE_CURRENT_BINARY_DIR}/zoltoolsTargets.cmake)
configure_package_config_file(cmake/zoltoolsConfig.cmake.in
    ${CMAKE_CURRENT_BINARY_DIR}/zoltoolsConfig.cmake
    INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zoltools)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/zoltoolsConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES
    ${CMAKE_CURRENT_BINARY_DIR}/zoltoolsConfig.cmake
    ${CMAKE_CURRENT_BINARY_DIR}/zoltoolsConfigVersion.cmake
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zoltools)
