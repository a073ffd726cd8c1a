# What `cmake --install` gives: headers, both libraries, the ways to find them, the router's programs and their manual
# pages. The headers have a folder of their own, since some of their names are everyday words.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(header_dir ${CMAKE_INSTALL_INCLUDEDIR}/mcastcommon)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/mcastcommon)

install(DIRECTORY include/mcast platform host/include/mcasthost DESTINATION ${header_dir} FILES_MATCHING PATTERN "*.h")
target_include_directories(mcastcommon INTERFACE $<INSTALL_INTERFACE:${header_dir}>)
target_include_directories(mcasthost INTERFACE $<INSTALL_INTERFACE:${header_dir}>)

install(TARGETS mcastcommon mcasthost EXPORT mcastcommonTargets)
install(EXPORT mcastcommonTargets NAMESPACE mcastcommon:: DESTINATION ${package_dir})
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

foreach(daemon mribd gmpd msdpd)
  mcast_install_program(${daemon} 8)
endforeach()
foreach(tool mcastctl uagent)
  mcast_install_program(${tool} 1)
endforeach()
if(TARGET mcastctl)
  install(FILES ${PROJECT_SOURCE_DIR}/daemons/mcastctl/completion.bash
          DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME mcastctl)
endif()
