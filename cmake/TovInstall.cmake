# What `cmake --install` puts in place. The tree can be moved afterwards: libraries and programs find each
# other by their own place, and so do the CMake package and the pkg-config file.
include(CMakePackageConfigHelpers)

set(tov_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/tovutil)
file(RELATIVE_PATH tov_lib_from_bin /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
file(RELATIVE_PATH TOV_PREFIX_FROM_PKGCONFIG /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
string(REGEX REPLACE "/$" "" TOV_PREFIX_FROM_PKGCONFIG ${TOV_PREFIX_FROM_PKGCONFIG})

# Relative in the build tree as well, so that no path of the build machine gets into the libraries.
set_target_properties(tovutil hvd zpt PROPERTIES BUILD_RPATH_USE_ORIGIN ON INSTALL_RPATH $ORIGIN)
install(TARGETS tovutil hvd zpt EXPORT tovutil-targets)

foreach(program tovconv dirload)
    if(TARGET ${program})
        set_target_properties(${program} PROPERTIES INSTALL_RPATH $ORIGIN/${tov_lib_from_bin})
        install(TARGETS ${program})
    endif()
endforeach()

# A header whose first line calls it internal stays here.
file(GLOB tov_headers CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR}
     ${PROJECT_SOURCE_DIR}/tovutil/*.h ${PROJECT_SOURCE_DIR}/tovdom/tovnls/*.h ${PROJECT_SOURCE_DIR}/services/*.h)
foreach(header IN LISTS tov_headers)
    file(STRINGS ${PROJECT_SOURCE_DIR}/${header} first_line LIMIT_COUNT 1)
    if(NOT first_line MATCHES "^//+ Internal:")
        cmake_path(GET header PARENT_PATH folder)
        install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${folder})
    endif()
endforeach()

install(EXPORT tovutil-targets NAMESPACE tovutil:: DESTINATION ${tov_package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/tovutil-config-version.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_SOURCE_DIR}/cmake/tovutil-config.cmake
              ${PROJECT_BINARY_DIR}/tovutil-config-version.cmake
        DESTINATION ${tov_package_dir})

configure_file(${PROJECT_SOURCE_DIR}/cmake/tovutil.pc.in ${PROJECT_BINARY_DIR}/tovutil.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tovutil.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
