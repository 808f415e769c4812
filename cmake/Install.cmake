# The programs, and the extension as a package of its own: find_package(brindlemar) gives brindlemar::extension.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

if(NOT BRINDLEMAR_EXTENSION_ONLY)
  install(TARGETS brindlemard brindlemar-host brindlemar RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

install(TARGETS brindlemar_extension EXPORT brindlemar ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
foreach(folder platform support items messaging core service)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/src/${folder} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/brindlemar FILES_MATCHING PATTERN "*.h")
endforeach()
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/brindlemar)
install(EXPORT brindlemar NAMESPACE brindlemar:: FILE brindlemar-targets.cmake DESTINATION ${package_dir})
file(WRITE ${PROJECT_BINARY_DIR}/brindlemar-config.cmake [[
include(CMakeFindDependencyMacro)
find_dependency(Threads)
find_dependency(Boost 1.81 COMPONENTS json)
include(${CMAKE_CURRENT_LIST_DIR}/brindlemar-targets.cmake)
]])
write_basic_package_version_file(${PROJECT_BINARY_DIR}/brindlemar-config-version.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/brindlemar-config.cmake ${PROJECT_BINARY_DIR}/brindlemar-config-version.cmake DESTINATION ${package_dir})
