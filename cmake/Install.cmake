# What a client on a host is built and tried with: headers, libraries, fboctl and a CMake package.

include(GNUInstallDirs)
set(package ${CMAKE_INSTALL_LIBDIR}/cmake/NivoraFbo)

# Each finds the others where they lie together, and Android's where they were linked.
set_target_properties(libhidlbase fbo_interface fbo_impl libcutils_uevent fboctl PROPERTIES
    INSTALL_RPATH "$ORIGIN;$ORIGIN/../${CMAKE_INSTALL_LIBDIR}" INSTALL_RPATH_USE_LINK_PATH ON)
set_target_properties(libhidlbase PROPERTIES EXPORT_NAME hidlbase)
set_target_properties(fbo_interface PROPERTIES EXPORT_NAME fbo)
target_include_directories(libhidlbase INTERFACE
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/nivora-fbo>)

install(TARGETS libhidlbase fbo_interface EXPORT NivoraFboTargets)
install(TARGETS fbo_impl libcutils_uevent fboctl)
install(FILES ${CMAKE_BINARY_DIR}/tools/fboctl/fboctl.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${CMAKE_BINARY_DIR}/tools/fboctl/fboctl.bash RENAME fboctl
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
install(DIRECTORY host/include/ ${CMAKE_BINARY_DIR}/host/generated/
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/nivora-fbo
    FILES_MATCHING PATTERN hidl/*.h PATTERN I*.h PATTERN types.h PATTERN IHw*.h EXCLUDE)
install(EXPORT NivoraFboTargets NAMESPACE Nivora:: DESTINATION ${package})
install(FILES cmake/NivoraFboConfig.cmake cmake/AndroidLibraries.cmake DESTINATION ${package})
