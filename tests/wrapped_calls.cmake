# Calls that tests replace at link time, and the fake system (unit/fake_system.h) that replaces most of
# them. Shared by the unit tests and the fuzz targets.
include_guard(DIRECTORY)

# wrap_calls(TARGET CALL...)  Whoever links the target calls __wrap_CALL instead of CALL.
function(wrap_calls target)
  set(options ${ARGN})
  if(CMAKE_SIZEOF_VOID_P EQUAL 4)
    # See unit/wrapped_names.h.
    list(TRANSFORM options REPLACE "^(fcntl|open|stat)$" "\\164")
  endif()
  list(TRANSFORM options PREPEND "-Wl,--wrap=")
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "EXECUTABLE")
    target_link_options(${target} PRIVATE ${options})
  else()
    target_link_options(${target} INTERFACE ${options})
  endif()
endfunction()

if(NOT TARGET fake_system)
  add_library(fake_system OBJECT EXCLUDE_FROM_ALL
    ${CMAKE_CURRENT_LIST_DIR}/unit/fake_files.cpp
    ${CMAKE_CURRENT_LIST_DIR}/unit/fake_network.cpp
    ${CMAKE_CURRENT_LIST_DIR}/unit/fake_processes.cpp
    ${CMAKE_CURRENT_LIST_DIR}/unit/fake_system.cpp
    ${CMAKE_CURRENT_LIST_DIR}/unit/fake_time.cpp
    ${CMAKE_CURRENT_LIST_DIR}/unit/recording_port.cpp)
  target_include_directories(fake_system PUBLIC ${CMAKE_CURRENT_LIST_DIR}/unit)
  target_link_libraries(fake_system PUBLIC hdtv_service)
  # The system calls that must not happen for real.
  wrap_calls(fake_system
    accept bind close connect event_add event_dispatch event_init event_set execv _exit fcntl fork
    ioctl kill listen open pclose popen prctl read recvfrom setsockopt shutdown signal sleep socket
    stat time unlink wait waitpid write)
endif()
