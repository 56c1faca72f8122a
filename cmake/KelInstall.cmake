# What cmake --install lays out beside the libraries, headers and programs: what compilers' and debuggers' users find them
# by. Nothing of it holds an absolute path, so the installed tree may be moved.
#
# There is a package a library, because a switch brings its own platform library: kel_utils finds kel_platform.
include(CMakePackageConfigHelpers)

# kel_install_package(name): the CMake package and the pkg-config file of a library that was exported as `name`.
function(kel_install_package name)
    set(folder ${CMAKE_INSTALL_LIBDIR}/cmake/${name})
    set(built ${PROJECT_BINARY_DIR}/install)
    configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/${name}-config.cmake.in ${built}/${name}-config.cmake
        INSTALL_DESTINATION ${folder} NO_SET_AND_CHECK_MACRO)
    # The SONAME stays while earlier processes run, so later releases with the same first number serve as well.
    write_basic_package_version_file(${built}/${name}-config-version.cmake COMPATIBILITY SameMajorVersion)
    install(FILES ${built}/${name}-config.cmake ${built}/${name}-config-version.cmake DESTINATION ${folder})
    install(EXPORT ${name} FILE ${name}-targets.cmake NAMESPACE kel:: DESTINATION ${folder})

    file(RELATIVE_PATH up_to_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
    string(REGEX REPLACE "/$" "" up_to_prefix "${up_to_prefix}")
    configure_file(${PROJECT_SOURCE_DIR}/cmake/${name}.pc.in ${built}/${name}.pc @ONLY)
    install(FILES ${built}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endfunction()

set(KEL_FINDS_PLATFORM OFF)
if(TARGET kel_platform)
    set(KEL_FINDS_PLATFORM ON)
    kel_install_package(kel_platform)
endif()
kel_install_package(kel_utils)

# What the library does on purpose and a sanitizer would report.
install(FILES tests/lsan.supp tests/tsan.supp DESTINATION ${CMAKE_INSTALL_DATADIR}/kel_utils)

# GDB loads what is named after the library's real file: from its own data folder, where distributions put it, or from
# beside the library once that folder is in the user's auto-load safe-path.
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    set(KEL_GDB_FOLDER ${CMAKE_INSTALL_DATADIR}/gdb/auto-load${CMAKE_INSTALL_FULL_LIBDIR})
else()
    set(KEL_GDB_FOLDER ${CMAKE_INSTALL_LIBDIR})
endif()
install(FILES gdb/kel_utils-gdb.py DESTINATION ${KEL_GDB_FOLDER} RENAME libkel_utils.so.${PROJECT_VERSION}-gdb.py)

install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR} FILES_MATCHING PATTERN "*.c" PATTERN "*.cpp" PATTERN "*.h")
if(TARGET kel-portd)
    install(DIRECTORY apps/portd/topologies DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)
endif()
install(PROGRAMS apps/port_lint/kel-port-lint DESTINATION ${CMAKE_INSTALL_BINDIR})
file(GLOB KEL_COMMAND_PAGES docs/man/*.1)
file(GLOB KEL_DAEMON_PAGES docs/man/*.8)
install(FILES ${KEL_COMMAND_PAGES} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${KEL_DAEMON_PAGES} DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
