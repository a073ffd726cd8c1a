# The conformance programs, one a service.
#
#   mcast_conformance(PREFIX HEADERS folder DRIVER sources LIBRARIES libraries, objects and options)
#
# makes the programs PREFIX_SERVICE of the platform that LIBRARIES bring, and a test PREFIX.SERVICE for each. HEADERS is
# the folder that has mcast/platform.
set(MCAST_CONFORMANCE_DIR ${CMAKE_CURRENT_LIST_DIR}/conformance)
set(MCAST_CONFORMANCE_SERVICES containers hash_tables prefix_trees timers boot_time random_bytes private_data interfaces
                               access_lists local_sockets)

function(mcast_conformance prefix)
  cmake_parse_arguments(PORT "" "HEADERS" "DRIVER;LIBRARIES" ${ARGN})
  foreach(service ${MCAST_CONFORMANCE_SERVICES})
    set(program ${prefix}_${service})
    add_executable(${program} ${MCAST_CONFORMANCE_DIR}/${service}.c ${MCAST_CONFORMANCE_DIR}/run.c ${PORT_DRIVER})
    target_include_directories(${program} PRIVATE ${MCAST_CONFORMANCE_DIR} ${PORT_HEADERS})
    target_compile_definitions(${program} PRIVATE _GNU_SOURCE)
    target_link_libraries(${program} PRIVATE ${PORT_LIBRARIES})
    add_test(NAME ${prefix}.${service} COMMAND ${program})
    set_tests_properties(${prefix}.${service} PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 120)
  endforeach()
endfunction()
