# What `cmake --install` puts where (GNUInstallDirs places). Components name
# the Debian packages they end up in: libfwmclk0 (the library), libfwmclk-dev
# (headers, CMake package, fwmclk.pc) and fwmclk-sim (the simulated board, its
# headers and fwmclk-sim.pc, clksim, clkpeer, the scenarios).
include(CMakePackageConfigHelpers)

set(FWMCLK_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/fwmclk)
set(FWMCLK_PC_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
set(FWMCLK_SONAME libfwmclk.so.${PROJECT_VERSION_MAJOR})

install(TARGETS fwmclk EXPORT fwmclkTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT libfwmclk0 NAMELINK_COMPONENT libfwmclk-dev)
install(DIRECTORY include/fwmclk DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT libfwmclk-dev
        FILES_MATCHING PATTERN "*.h")
install(EXPORT fwmclkTargets NAMESPACE fwmclk:: DESTINATION ${FWMCLK_CMAKE_DIR} COMPONENT libfwmclk-dev)

configure_package_config_file(cmake/fwmclkConfig.cmake.in ${PROJECT_BINARY_DIR}/fwmclkConfig.cmake
                              INSTALL_DESTINATION ${FWMCLK_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/fwmclkConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/fwmclkConfig.cmake ${PROJECT_BINARY_DIR}/fwmclkConfigVersion.cmake
        DESTINATION ${FWMCLK_CMAKE_DIR} COMPONENT libfwmclk-dev)

# The .pc files find their prefix from where they lie, so one build serves a
# package (prefix /usr) and an install into any other prefix alike.
file(RELATIVE_PATH FWMCLK_PC_TO_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" FWMCLK_PC_TO_PREFIX "${FWMCLK_PC_TO_PREFIX}")
foreach(pc fwmclk fwmclk-sim)
  configure_file(cmake/${pc}.pc.in ${PROJECT_BINARY_DIR}/${pc}.pc @ONLY)
endforeach()
install(FILES ${PROJECT_BINARY_DIR}/fwmclk.pc DESTINATION ${FWMCLK_PC_DIR} COMPONENT libfwmclk-dev)

if(TARGET fwmclk_sim)
  # Exported as the board alone; fwmclk::sim (fwmclkConfig.cmake) links it
  # after the library, whatever --as-needed says.
  set_target_properties(fwmclk_sim PROPERTIES EXPORT_NAME sim_board)
  install(TARGETS fwmclk_sim EXPORT fwmclkSimTargets
          LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT fwmclk-sim NAMELINK_COMPONENT fwmclk-sim)
  install(DIRECTORY sim/include/fwmsim DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT fwmclk-sim)
  install(EXPORT fwmclkSimTargets NAMESPACE fwmclk:: DESTINATION ${FWMCLK_CMAKE_DIR} COMPONENT fwmclk-sim)
  install(FILES ${PROJECT_BINARY_DIR}/fwmclk-sim.pc DESTINATION ${FWMCLK_PC_DIR} COMPONENT fwmclk-sim)
endif()

if(TARGET clksim)
  install(TARGETS clksim clkpeer clkcheck RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT fwmclk-sim)
  install(DIRECTORY scenarios/ DESTINATION ${CMAKE_INSTALL_DATADIR}/fwmclk/scenarios COMPONENT fwmclk-sim
          FILES_MATCHING PATTERN "*.yaml")
  # Man pages from the tools' own --help and --version, so that they say what
  # the binaries do (a cross build asks them through the emulator).
  find_program(FWMCLK_HELP2MAN help2man)
  if(FWMCLK_HELP2MAN)
    set(summary_clksim "the clock service on a simulated line card")
    set(summary_clkpeer "a clock negotiation peer that prints the announce acknowledgements it receives")
    set(summary_clkcheck "checks that the PTP messages of a capture keep their profile")
    foreach(tool clksim clkpeer clkcheck)
      add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/man/${tool}.1.gz
                         COMMAND ${FWMCLK_HELP2MAN} --no-info --no-discard-stderr --section=1
                                 --name=${summary_${tool}} --output=${PROJECT_BINARY_DIR}/man/${tool}.1
                                 ${FWMCLK_RUN_${tool}}
                         COMMAND gzip -9nf ${PROJECT_BINARY_DIR}/man/${tool}.1
                         DEPENDS ${tool} VERBATIM)
      list(APPEND FWMCLK_MAN_PAGES ${PROJECT_BINARY_DIR}/man/${tool}.1.gz)
    endforeach()
    add_custom_target(fwmclk_man ALL DEPENDS ${FWMCLK_MAN_PAGES})
    install(FILES ${FWMCLK_MAN_PAGES} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT fwmclk-sim)
  else()
    message(STATUS "help2man not found: clksim, clkpeer and clkcheck get no man pages (their --help stands)")
  endif()
endif()
