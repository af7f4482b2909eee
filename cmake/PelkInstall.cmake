# `cmake --install` lays the engine out for a program that builds on it:
#   include/pelk/<folder>/...       the engine's headers by folder, and base/
#   include/pelk/platform/<lib>/... the headers of the platform and closed
#                                   libraries the engine's headers include
#   lib/libpelk.a, libpelk_base.a   the engine and its bottom layer
#   lib/libpelk_<lib>.a             the host editions of those libraries: on a
#                                   Linux host nothing else provides them, so
#                                   a host program cannot link the engine
#                                   without them (a device build takes the
#                                   device's own, see Android.bp)
#   lib/cmake/pelk/                 find_package(pelk) -> pelk::pelk
#   lib/pkgconfig/pelk.pc           the same for pkg-config
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(PELK_ANDROID_HEADERS /usr/include/android)
get_target_property(PELK_PLATFORM_TARGETS pelk_platform INTERFACE_LINK_LIBRARIES)
set(PELK_INSTALLED_TARGETS pelk pelk_base pelk_platform ${PELK_PLATFORM_TARGETS})

# The engine's headers include the platform's own (<log/log.h>, <cutils/...>)
# as Debian's android-* packages ship them; inside this tree the top
# directory puts them on every target's path.
target_include_directories(pelk SYSTEM INTERFACE $<INSTALL_INTERFACE:${PELK_ANDROID_HEADERS}>)

# A sanitizer build installs instrumented archives: whatever links them needs
# the sanitizers' runtime, whether or not its own code is instrumented.
if(PELK_SANITIZE)
  target_link_options(pelk_base INTERFACE $<INSTALL_INTERFACE:-fsanitize=address,undefined>)
endif()

install(TARGETS ${PELK_INSTALLED_TARGETS} EXPORT pelkTargets
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY ${CMAKE_SOURCE_DIR}/src/ ${CMAKE_SOURCE_DIR}/base/include/
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/pelk FILES_MATCHING PATTERN "*.h")
install(DIRECTORY ${CMAKE_SOURCE_DIR}/platform/include/ ${CMAKE_SOURCE_DIR}/platform/devprofile/include/
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/pelk/platform FILES_MATCHING PATTERN "*.h")

set(PELK_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/pelk)
install(EXPORT pelkTargets NAMESPACE pelk:: DESTINATION ${PELK_CMAKE_DIR})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/pelkConfig.cmake.in
  ${CMAKE_BINARY_DIR}/pelkConfig.cmake INSTALL_DESTINATION ${PELK_CMAKE_DIR})
install(FILES ${CMAKE_BINARY_DIR}/pelkConfig.cmake DESTINATION ${PELK_CMAKE_DIR})

# pkg-config: the archives in one group (the host editions call each other in
# both directions), then the link options the host editions ask of every
# program (symbol wraps and kept objects), gathered from the same targets.
set(PELK_PC_LIBS "-lpelk")
set(PELK_PC_LINK_OPTIONS "")
foreach(target ${PELK_PLATFORM_TARGETS})
  string(APPEND PELK_PC_LIBS " -l${target}")
  get_target_property(options ${target} INTERFACE_LINK_OPTIONS)
  if(options)
    list(JOIN options " " options)
    string(APPEND PELK_PC_LINK_OPTIONS " ${options}")
  endif()
endforeach()
string(APPEND PELK_PC_LIBS " -lpelk_base")
if(PELK_SANITIZE)
  string(APPEND PELK_PC_LINK_OPTIONS " -fsanitize=address,undefined")
endif()
# The file names its prefix relative to itself, so the tree may be moved or
# installed with --prefix.
file(RELATIVE_PATH PELK_PC_TO_PREFIX /root/${CMAKE_INSTALL_LIBDIR}/pkgconfig /root)
string(REGEX REPLACE "/$" "" PELK_PC_TO_PREFIX "${PELK_PC_TO_PREFIX}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/pelk.pc.in ${CMAKE_BINARY_DIR}/pelk.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/pelk.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
