# Installation: what a host program needs to build against the framework and the module.
#
#   <prefix>/lib/libzorframework.so   the framework (link it)
#   <prefix>/lib/libzor.so            the module (load it at run time, or link it for the exported
#                                     processing classes)
#   <prefix>/include/zor/...          the headers, included as "framework/kor/Packet.h"
#   <prefix>/bin/zor-run              the Lua host
#   <prefix>/lib/cmake/Zor/           find_package(Zor): Zor::framework, Zor::module, ZOR_MODULE_PATH
#   <prefix>/lib/pkgconfig/zor.pc     pkg-config zor: the framework (its variable "module" is the
#                                     module's path); zor-module.pc adds the module to link
include(CMakePackageConfigHelpers)

set(ZOR_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/zor)
set(ZOR_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/Zor)

target_include_directories(zorframework PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}> $<INSTALL_INTERFACE:${ZOR_INSTALL_INCLUDEDIR}>)
target_compile_features(zorframework PUBLIC cxx_std_20)
set_target_properties(zorframework PROPERTIES EXPORT_NAME framework)
set_target_properties(zor PROPERTIES EXPORT_NAME module)

install(TARGETS zorframework zor EXPORT ZorTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    INCLUDES DESTINATION ${ZOR_INSTALL_INCLUDEDIR})
install(TARGETS zor-run RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

# The headers of every folder of the framework and the module, as they lie in the source tree.
foreach(folder framework entry routing expr filters audio video analytics storage)
    if(IS_DIRECTORY ${PROJECT_SOURCE_DIR}/${folder})
        install(DIRECTORY ${folder} DESTINATION ${ZOR_INSTALL_INCLUDEDIR}
                FILES_MATCHING PATTERN "*.h" PATTERN "fuzz" EXCLUDE)
    endif()
endforeach()

install(EXPORT ZorTargets NAMESPACE Zor:: DESTINATION ${ZOR_INSTALL_CMAKEDIR})
configure_package_config_file(cmake/ZorConfig.cmake.in ${PROJECT_BINARY_DIR}/ZorConfig.cmake
    INSTALL_DESTINATION ${ZOR_INSTALL_CMAKEDIR}
    PATH_VARS CMAKE_INSTALL_LIBDIR)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ZorConfigVersion.cmake
    COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ZorConfig.cmake ${PROJECT_BINARY_DIR}/ZorConfigVersion.cmake
    DESTINATION ${ZOR_INSTALL_CMAKEDIR})

# pkg-config: the prefix is filled in at install time, so a staged install (--prefix) is right.
install(CODE "
    set(prefix \"\${CMAKE_INSTALL_PREFIX}\")
    set(libdir \"${CMAKE_INSTALL_LIBDIR}\")
    set(includedir \"${ZOR_INSTALL_INCLUDEDIR}\")
    set(version \"${PROJECT_VERSION}\")
    foreach(name zor zor-module)
        configure_file(\"${PROJECT_SOURCE_DIR}/cmake/\${name}.pc.in\"
                       \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig/\${name}.pc\" @ONLY)
        message(STATUS \"Installing: \${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig/\${name}.pc\")
    endforeach()
")
