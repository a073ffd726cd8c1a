# What `cmake --install` gives: headers, both libraries, the ways to find them, examples, the router's programs and their
# manual pages.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(header_dir ${CMAKE_INSTALL_INCLUDEDIR}/mcastcommon)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/mcastcommon)

# "platform" is an everyday word: the platform's headers are installed as mcast/platform/*.h, and the installed headers
# include them there, so that neither they nor a consumer's own folder platform/ can hide the other.
set(headers_made ${PROJECT_BINARY_DIR}/installed-headers)
file(GLOB headers CONFIGURE_DEPENDS include/mcast/*.h platform/*.h host/include/mcasthost/*.h)
add_custom_command(
  OUTPUT ${headers_made}.stamp
  COMMAND ${CMAKE_COMMAND} -DTOP=${PROJECT_SOURCE_DIR} -DMADE=${headers_made}
          -P ${PROJECT_SOURCE_DIR}/cmake/MakeInstalledHeaders.cmake
  COMMAND ${CMAKE_COMMAND} -E touch ${headers_made}.stamp
  DEPENDS ${headers} ${PROJECT_SOURCE_DIR}/cmake/MakeInstalledHeaders.cmake
  VERBATIM)
add_custom_target(installed_headers ALL DEPENDS ${headers_made}.stamp)
install(DIRECTORY ${headers_made}/ DESTINATION ${header_dir})
target_include_directories(mcastcommon INTERFACE $<INSTALL_INTERFACE:${header_dir}>)
target_include_directories(mcasthost INTERFACE $<INSTALL_INTERFACE:${header_dir}>)

# The target mcastcommon::mcasthost is made in mcastcommonConfig.cmake, around the library itself.
set_target_properties(mcasthost PROPERTIES EXPORT_NAME mcasthost_library)
install(TARGETS mcastcommon EXPORT mcastcommonTargets)
install(TARGETS mcasthost EXPORT mcasthostTargets)
foreach(library mcastcommon mcasthost)
  install(EXPORT ${library}Targets NAMESPACE mcastcommon:: DESTINATION ${package_dir})
endforeach()
configure_package_config_file(cmake/mcastcommonConfig.cmake.in ${PROJECT_BINARY_DIR}/mcastcommonConfig.cmake
                              INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/mcastcommonConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/mcastcommonConfig.cmake ${PROJECT_BINARY_DIR}/mcastcommonConfigVersion.cmake
        DESTINATION ${package_dir})

# The installed tree may be moved.
file(RELATIVE_PATH include_from_pc /${CMAKE_INSTALL_LIBDIR}/pkgconfig /${CMAKE_INSTALL_INCLUDEDIR})
foreach(library mcastcommon mcasthost)
  configure_file(cmake/${library}.pc.in ${PROJECT_BINARY_DIR}/${library}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${library}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()

# What a port is begun with and judged by.
install(DIRECTORY porting DESTINATION ${CMAKE_INSTALL_DATADIR}/mcastcommon)

# What a program is begun with.
install(DIRECTORY examples/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)

# A manual page is the program's own --help between the sections of docs/man/PROGRAM.h2m, so that it cannot lag behind.
find_program(HELP2MAN help2man)
if(NOT HELP2MAN)
  message(STATUS "help2man not found: no manual pages")
endif()

function(mcast_install_program program section)
  if(NOT TARGET ${program})
    return()
  endif()
  set_target_properties(${program} PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
  if(section EQUAL 8)
    install(TARGETS ${program} RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR})
  else()
    install(TARGETS ${program} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  endif()
  # A program made with a sanitizer runs too slowly, and perhaps not at all where the page is made.
  if(HELP2MAN AND NOT MCAST_SANITIZE)
    set(page ${PROJECT_BINARY_DIR}/man/${program}.${section})
    set(sections ${PROJECT_SOURCE_DIR}/docs/man/${program}.h2m)
    add_custom_command(
      OUTPUT ${page}
      COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/man
      COMMAND ${CMAKE_COMMAND} -E env LC_ALL=C ${HELP2MAN} --no-info --section=${section}
              --source=mcastcommon --include=${sections} --output=${page} $<TARGET_FILE:${program}>
      DEPENDS ${program} ${sections}
      VERBATIM)
    add_custom_target(man_${program} ALL DEPENDS ${page})
    install(FILES ${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
  endif()
endfunction()

foreach(daemon mribd gmpd msdpd pimsmd)
  mcast_install_program(${daemon} 8)
endforeach()
foreach(tool mcastctl uagent)
  mcast_install_program(${tool} 1)
endforeach()
if(TARGET mcastctl)
  install(FILES ${PROJECT_SOURCE_DIR}/daemons/mcastctl/completion.bash
          DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME mcastctl)
endif()
