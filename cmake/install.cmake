# What cmake --install puts under the prefix (in front of which DESTDIR stands, if it is set).
# Components: Runtime (the library), Development (headers, links, static library, pkg-config and
# CMake package), Tools (kovastream with its sample clip).
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(kova_cmake_dir "${CMAKE_INSTALL_LIBDIR}/cmake/KovaRtspServer")

set(kova_installed kovartspserver)
if(TARGET kovartspserver_static)
    list(APPEND kova_installed kovartspserver_static)
endif()
install(TARGETS ${kova_installed} EXPORT KovaRtspServerTargets
    LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
        COMPONENT Runtime NAMELINK_COMPONENT Development
    ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT Development
    INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
install(FILES ${kova_headers}
    DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT Development)

# ---- CMake package ---------------------------------------------------------------------------

install(EXPORT KovaRtspServerTargets
    NAMESPACE KovaRtspServer::
    DESTINATION "${kova_cmake_dir}" COMPONENT Development)
configure_package_config_file(
    "${CMAKE_CURRENT_LIST_DIR}/KovaRtspServerConfig.cmake.in"
    "${CMAKE_BINARY_DIR}/KovaRtspServerConfig.cmake"
    INSTALL_DESTINATION "${kova_cmake_dir}"
    NO_SET_AND_CHECK_MACRO)
# Below 1.0 the interface may change with the minor number.
write_basic_package_version_file("${CMAKE_BINARY_DIR}/KovaRtspServerConfigVersion.cmake"
    COMPATIBILITY SameMinorVersion)
install(FILES
    "${CMAKE_BINARY_DIR}/KovaRtspServerConfig.cmake"
    "${CMAKE_BINARY_DIR}/KovaRtspServerConfigVersion.cmake"
    DESTINATION "${kova_cmake_dir}" COMPONENT Development)

# ---- pkg-config ------------------------------------------------------------------------------

# One for each interface that is there, so that a host asks for what it uses, whichever library
# that is in. Written at installation, as the prefix may be given only then (cmake --install
# --prefix).
set(kova_pkg_configs)
if(KOVA_CLASSIC)
    list(APPEND kova_pkg_configs kova_rtsp_server)
endif()
if(KOVA_LIVE)
    list(APPEND kova_pkg_configs kova_live)
endif()
file(CONFIGURE OUTPUT "${CMAKE_BINARY_DIR}/install_pkg_config.cmake" @ONLY CONTENT [=[
cmake_path(ABSOLUTE_PATH kova_libdir BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}" NORMALIZE)
cmake_path(ABSOLUTE_PATH kova_includedir BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}" NORMALIZE)
foreach(kova_pkg_config IN LISTS kova_pkg_configs)
    configure_file("@PROJECT_SOURCE_DIR@/cmake/kova.pc.in"
        "@CMAKE_BINARY_DIR@/${kova_pkg_config}.pc" @ONLY)
endforeach()
]=])
install(CODE "
set(kova_version \"${PROJECT_VERSION}\")
set(kova_library_name \"${kova_library_name}\")
set(kova_pkg_configs \"${kova_pkg_configs}\")
set(kova_libdir \"${CMAKE_INSTALL_LIBDIR}\")
set(kova_includedir \"${CMAKE_INSTALL_INCLUDEDIR}\")
include(\"${CMAKE_BINARY_DIR}/install_pkg_config.cmake\")" COMPONENT Development)
list(TRANSFORM kova_pkg_configs REPLACE "(.+)" "${CMAKE_BINARY_DIR}/\\1.pc"
    OUTPUT_VARIABLE kova_pc_files)
install(FILES ${kova_pc_files}
    DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT Development)

# ---- Tools -----------------------------------------------------------------------------------

if(TARGET kovastream)
    install(TARGETS kovastream
        RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT Tools)
    install(FILES
        "${PROJECT_SOURCE_DIR}/samples/clip.h264" "${PROJECT_SOURCE_DIR}/samples/clip.aac"
        DESTINATION "${CMAKE_INSTALL_DATADIR}/kovastream" COMPONENT Tools)
endif()
