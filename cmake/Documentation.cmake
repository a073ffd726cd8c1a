# Manual pages and HTML of the public headers: the target `documentation`, which is not part of a usual build; installing
# makes it. The pages of the programs are in Install.cmake.
find_package(Python3 REQUIRED COMPONENTS Interpreter)
set(manual_dir ${PROJECT_BINARY_DIR}/manual)
file(GLOB manual_sources CONFIGURE_DEPENDS scripts/manual/*.py include/mcast/*.h platform/*.h host/include/mcasthost/*.h)
add_custom_command(
  OUTPUT ${manual_dir}.stamp
  COMMAND Python3::Interpreter -B ${PROJECT_SOURCE_DIR}/scripts/manual ${manual_dir} ${PROJECT_VERSION}
  COMMAND ${CMAKE_COMMAND} -E touch ${manual_dir}.stamp
  DEPENDS ${manual_sources} ${PROJECT_SOURCE_DIR}/docs/man/mcastcommon.md ${PROJECT_SOURCE_DIR}/docs/configuration.md
  VERBATIM)
add_custom_target(documentation DEPENDS ${manual_dir}.stamp)

# In front of what it makes: an installation goes in order. Two of them at once wait for each other.
install(CODE "
  file(LOCK \"${PROJECT_BINARY_DIR}/documentation.lock\")
  execute_process(COMMAND \"${CMAKE_COMMAND}\" --build \"${PROJECT_BINARY_DIR}\" --target documentation
                  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  file(LOCK \"${PROJECT_BINARY_DIR}/documentation.lock\" RELEASE)")

find_program(DOXYGEN doxygen)
if(DOXYGEN)
  set(html_dir ${PROJECT_BINARY_DIR}/html)
  file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/Doxyfile CONTENT
       "@INCLUDE = docs/Doxyfile\nINPUT = ${headers_made}\nSTRIP_FROM_PATH = ${headers_made}\n\
STRIP_FROM_INC_PATH = ${headers_made}\nOUTPUT_DIRECTORY = ${PROJECT_BINARY_DIR}\nHTML_OUTPUT = html\n" @ONLY)
  add_custom_command(
    OUTPUT ${html_dir}/index.html
    COMMAND ${DOXYGEN} ${PROJECT_BINARY_DIR}/Doxyfile > ${PROJECT_BINARY_DIR}/doxygen.log 2>&1
    DEPENDS ${headers_made}.stamp ${PROJECT_SOURCE_DIR}/docs/Doxyfile
    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
    VERBATIM)
  add_custom_target(html_documentation DEPENDS ${html_dir}/index.html)
  add_dependencies(documentation html_documentation)
  install(DIRECTORY ${html_dir} DESTINATION ${CMAKE_INSTALL_DOCDIR})
else()
  message(STATUS "doxygen not found: no HTML pages of the headers")
endif()

install(DIRECTORY ${manual_dir}/ DESTINATION ${CMAKE_INSTALL_MANDIR})
file(GLOB doc_pages CONFIGURE_DEPENDS docs/*.md docs/*.toml docs/*.svg)
install(FILES ${doc_pages} DESTINATION ${CMAKE_INSTALL_DOCDIR})
