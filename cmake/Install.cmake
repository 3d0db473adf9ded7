# What leaves the build: the library and its header, the platform's stand-ins beside it, the tool, and what lets
# other projects find the library, with pkg-config or with CMake. Nothing in it names the prefix, so that an
# installed folder can be moved.
include(CMakePackageConfigHelpers)

set(packageDir ${CMAKE_INSTALL_LIBDIR}/cmake/vemoflashcache)
file(RELATIVE_PATH prefixFromPc /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)

set_target_properties(vemoflashcache vemocore vemosdk vemosysnotify PROPERTIES INSTALL_RPATH "$ORIGIN")

install(TARGETS vemoflashcache EXPORT vemoflashcacheTargets)
install(TARGETS vemocore vemosdk vemosysnotify LIBRARY NAMELINK_SKIP)
install(TARGETS vemocachectl)
install(FILES include/vemoflashcache.h TYPE INCLUDE)

configure_file(cmake/vemoflashcache.pc.in vemoflashcache.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/vemoflashcache.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(EXPORT vemoflashcacheTargets NAMESPACE vemoflashcache:: DESTINATION ${packageDir})
configure_package_config_file(cmake/vemoflashcacheConfig.cmake.in vemoflashcacheConfig.cmake
  INSTALL_DESTINATION ${packageDir})
write_basic_package_version_file(vemoflashcacheConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/vemoflashcacheConfig.cmake ${CMAKE_BINARY_DIR}/vemoflashcacheConfigVersion.cmake
  DESTINATION ${packageDir})

# The shells' completion, where they look for it.
install(FILES contrib/completion/vemocachectl.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
  RENAME vemocachectl)
install(FILES contrib/completion/_vemocachectl DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
install(FILES contrib/completion/vemocachectl.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)

# Units that whoever wants them enables.
set(VEMO_UNIT_FOLDER lib/systemd/system CACHE STRING "Where systemd looks for units")
file(GLOB units CONFIGURE_DEPENDS contrib/systemd/*.service contrib/systemd/*.timer)
install(FILES ${units} DESTINATION ${VEMO_UNIT_FOLDER})
