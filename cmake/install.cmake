# Install rules, the CMake package and the pkg-config file: ZqDatabase and zqdatabase.pc for
# Qt 5, ZqDatabase-Qt6 and zqdatabase-qt6.pc for Qt 6, so that both flavours share a prefix.
include(CMakePackageConfigHelpers)

set(ZQDATABASE_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/${ZQ_PACKAGE})
set(ZQDATABASE_INCLUDE_DIR ${CMAKE_INSTALL_INCLUDEDIR}/zqdatabase${ZQ_SUFFIX})

# libzqdatabase finds libzqcore beside it, wherever the prefix is: a host that links only the
# former (--as-needed) has no path of its own to the latter.
set_target_properties(zqdatabase PROPERTIES INSTALL_RPATH "$ORIGIN")

install(TARGETS zqcore zqdatabase EXPORT ${ZQ_PACKAGE}Targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
if(TARGET zqdb)
    install(TARGETS zqdb RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

# Only the public headers: the library's internal helpers stay out of the package.
install(FILES ${ZQDATABASE_PUBLIC_HEADERS} DESTINATION ${ZQDATABASE_INCLUDE_DIR}/database)
install(FILES ${ZQCORE_PUBLIC_HEADERS} DESTINATION ${ZQDATABASE_INCLUDE_DIR}/core)

install(EXPORT ${ZQ_PACKAGE}Targets NAMESPACE ZqDatabase:: DESTINATION ${ZQDATABASE_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/ZqDatabaseConfig.cmake.in
    ${PROJECT_BINARY_DIR}/${ZQ_PACKAGE}Config.cmake
    INSTALL_DESTINATION ${ZQDATABASE_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/${ZQ_PACKAGE}ConfigVersion.cmake
    VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/${ZQ_PACKAGE}Config.cmake
    ${PROJECT_BINARY_DIR}/${ZQ_PACKAGE}ConfigVersion.cmake
    DESTINATION ${ZQDATABASE_CMAKE_DIR})

# The prefix is found from the .pc file's own location, so the package stays relocatable
# (cmake --install --prefix elsewhere).
file(RELATIVE_PATH ZQDATABASE_PC_TO_PREFIX
    ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(${PROJECT_SOURCE_DIR}/cmake/zqdatabase.pc.in
    ${PROJECT_BINARY_DIR}/zqdatabase${ZQ_SUFFIX}.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zqdatabase${ZQ_SUFFIX}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
