# What `cmake --install` lays down, and how other projects find it. Everything
# refers to everything else relatively, so that the whole may be moved.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(headers ${CMAKE_INSTALL_INCLUDEDIR}/torvex)
set(package ${CMAKE_INSTALL_LIBDIR}/cmake/torvex)
set(made ${PROJECT_BINARY_DIR}/package)

install(DIRECTORY attrfullname platform preferences registry timedcommand timedcommandmanager
  DESTINATION ${headers} FILES_MATCHING PATTERN "*.h")
install(FILES ${PROJECT_BINARY_DIR}/include/torvex_export.h DESTINATION ${headers})
install(TARGETS torvex EXPORT torvex INCLUDES DESTINATION ${headers})
set_target_properties(torvex PROPERTIES INSTALL_RPATH "$ORIGIN")

if(TORVEX_SIMULATION)
  install(FILES simulation/framework.h simulation/machine.h simulation/observer.h DESTINATION ${headers}/simulation)
  install(TARGETS torvex_simulation EXPORT torvex INCLUDES DESTINATION ${headers})
  set_target_properties(torvex_simulation PROPERTIES
    EXPORT_NAME simulation INSTALL_RPATH "$ORIGIN")
endif()
if(TORVEX_HOST)
  file(RELATIVE_PATH toLibraries ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  install(TARGETS torvex_tool)
  set_target_properties(torvex_tool PROPERTIES INSTALL_RPATH "$ORIGIN/${toLibraries}")
  if(TORVEX_BRIDGE)
    install(TARGETS torvex_bridge_ros2)
    set_target_properties(torvex_bridge_ros2 PROPERTIES INSTALL_RPATH "$ORIGIN/${toLibraries}")
  endif()
  set(documents ${PROJECT_BINARY_DIR}/documents)
  install(DIRECTORY ${documents}/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
    FILES_MATCHING PATTERN "*.1")
  install(FILES ${documents}/torvex.bash
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME torvex)
  install(FILES ${documents}/torvex.zsh
    DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions RENAME _torvex)
  install(FILES ${documents}/torvex.fish
    DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
  # Where Debian's Python 3.11 looks below /usr/local; for another one, `pip install ./python`.
  install(DIRECTORY python/torvex DESTINATION lib/python3.11/dist-packages
    FILES_MATCHING PATTERN "*.py" PATTERN "py.typed")
endif()

# find_package(torvex)
install(EXPORT torvex NAMESPACE torvex:: FILE torvexTargets.cmake DESTINATION ${package})
configure_package_config_file(cmake/torvexConfig.cmake.in ${made}/torvexConfig.cmake
  INSTALL_DESTINATION ${package} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${made}/torvexConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${made}/torvexConfig.cmake ${made}/torvexConfigVersion.cmake
  DESTINATION ${package})

# pkg-config, one file a library: torvex_pkg_config(PACKAGE LIBRARY DESCRIPTION)
function(torvex_pkg_config PACKAGE LIBRARY DESCRIPTION)
  file(RELATIVE_PATH toPrefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
  file(RELATIVE_PATH libraries ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_LIBDIR})
  file(RELATIVE_PATH includes ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
  configure_file(cmake/package.pc.in ${made}/${PACKAGE}.pc @ONLY)
  install(FILES ${made}/${PACKAGE}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endfunction()

torvex_pkg_config(torvex torvex "${PROJECT_DESCRIPTION}")
if(TORVEX_SIMULATION)
  torvex_pkg_config(torvex-simulation torvex_simulation "A simulated platform for torvex")
endif()
