# Debian packages through CPack: `cpack --preset package` (amd64) or
# `cpack --preset package-armhf` after building the matching preset. The
# architecture is the compiler's, so a cross build packages for the target.
set(FWMCLK_PACKAGE_MAINTAINER "fwmclk maintainers <fwmclk@example.org>" CACHE STRING "Maintainer of the packages")

execute_process(COMMAND ${CMAKE_C_COMPILER} -dumpmachine OUTPUT_VARIABLE FWMCLK_TRIPLET OUTPUT_STRIP_TRAILING_WHITESPACE)
execute_process(COMMAND dpkg-architecture -qDEB_HOST_ARCH -t${FWMCLK_TRIPLET} OUTPUT_VARIABLE CPACK_DEBIAN_PACKAGE_ARCHITECTURE
                OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME fwmclk)
set(CPACK_PACKAGE_CONTACT "${FWMCLK_PACKAGE_MAINTAINER}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL libfwmclk0 libfwmclk-dev fwmclk-sim)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE fwmclk)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# clksim and the simulated board need the library of this very build; the
# component dependencies below say so, dpkg-shlibdeps need not.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/src ${PROJECT_BINARY_DIR}/sim)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
# Both libraries declare their sonames (shlibs) and let dpkg's ldconfig
# trigger refresh the cache.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_LIBFWMCLK0_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/triggers)
set(CPACK_DEBIAN_FWMCLK-SIM_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/triggers)

set(CPACK_DEBIAN_LIBFWMCLK0_PACKAGE_NAME libfwmclk0)
set(CPACK_DEBIAN_LIBFWMCLK0_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_LIBFWMCLK0_DESCRIPTION "clock service of the line card's forwarding plane
libfwmclk is loaded into the line card's forwarding-management process. It
programs the IEEE 1588 PTP and SSM functions of the forwarding engines for the
clock orchestrator, reads timestamps, delay differences and packet statistics
back, and supervises received announce messages. The host process provides
the platform functions the library calls.")

set(CPACK_DEBIAN_LIBFWMCLK-DEV_PACKAGE_NAME libfwmclk-dev)
set(CPACK_DEBIAN_LIBFWMCLK-DEV_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_LIBFWMCLK-DEV_DEPENDS libfwmclk0)
set(CPACK_COMPONENT_LIBFWMCLK-DEV_DESCRIPTION "clock service of the line card's forwarding plane - development files
The C headers of libfwmclk, including the platform functions a host process
implements, the CMake package (find_package(fwmclk) gives fwmclk::fwmclk) and
the pkg-config file fwmclk.pc.")

set(CPACK_DEBIAN_FWMCLK-SIM_PACKAGE_NAME fwmclk-sim)
set(CPACK_DEBIAN_FWMCLK-SIM_PACKAGE_SECTION devel)
set(CPACK_COMPONENT_FWMCLK-SIM_DEPENDS libfwmclk0)
set(CPACK_COMPONENT_FWMCLK-SIM_DESCRIPTION "simulated line card for the fwmclk clock service
A model of the line card's platform on a virtual clock, providing every
platform function libfwmclk calls (libfwmclk_sim, with its headers, the CMake
component fwmclk::sim and fwmclk-sim.pc), the line-card simulator clksim with
example scenarios, clkpeer, a stand-alone negotiation peer, and clkcheck,
which checks that the PTP messages of a capture keep their profile.")

# Each package carries its copyright and changelog; each lintian tag left is
# explained in packaging/lintian/<package>.
configure_file(packaging/changelog.in ${PROJECT_BINARY_DIR}/packaging/changelog @ONLY)
execute_process(COMMAND gzip -9nc ${PROJECT_BINARY_DIR}/packaging/changelog
                OUTPUT_FILE ${PROJECT_BINARY_DIR}/packaging/changelog.gz)
foreach(pkg IN LISTS CPACK_COMPONENTS_ALL)
  install(FILES packaging/copyright ${PROJECT_BINARY_DIR}/packaging/changelog.gz
          DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${pkg} COMPONENT ${pkg} EXCLUDE_FROM_ALL)
  if(EXISTS ${PROJECT_SOURCE_DIR}/packaging/lintian/${pkg})
    install(FILES packaging/lintian/${pkg} DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides COMPONENT ${pkg}
            EXCLUDE_FROM_ALL)
  endif()
endforeach()

include(CPack)
