# Which commit the sources are, for the version of the Debian package and every time in it:
#   HDTV_PACKAGE_VERSION  47+20261122.0123456789, of the commit's day (UTC) and hash
#   HDTV_EPOCH            seconds; SOURCE_DATE_EPOCH, if that is set, or the commit's time
# Uncommitted changes are told ("+modified"), and so is that nobody knows ("0.unknown", which any commit
# is an upgrade of).

# git RESULT ARGUMENT...  Its output; empty if it fails or there is none. The tree may be another user's.
function(git result)
  execute_process(COMMAND git --no-optional-locks -c safe.directory=* ${ARGN}
    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
    OUTPUT_VARIABLE output OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    set(output "")
  endif()
  set(${result} "${output}" PARENT_SCOPE)
endfunction()

# The hash and the time, and "+modified" or nothing. The sources may lie within another project's tree.
function(read_commit commit changes)
  set(${changes} "" PARENT_SCOPE)
  git(top rev-parse --show-toplevel)
  if(top)
    file(REAL_PATH ${PROJECT_SOURCE_DIR} here)
    file(REAL_PATH ${top} top)
  endif()
  if(top AND top STREQUAL here)
    git(found log -1 "--format=%H %ct")
    git(status status --porcelain)
    if(status)
      set(${changes} "+modified" PARENT_SCOPE)
    endif()
    # Another commit is another version, also without another run of cmake.
    git(log rev-parse --git-path logs/HEAD)
    file(REAL_PATH "${log}" log BASE_DIRECTORY ${PROJECT_SOURCE_DIR})
    if(EXISTS ${log} AND NOT CMAKE_SCRIPT_MODE_FILE)
      set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${log})
    endif()
  else()
    file(STRINGS ${PROJECT_SOURCE_DIR}/cmake/commit found)
  endif()
  set(${commit} "${found}" PARENT_SCOPE)
endfunction()

read_commit(commit changes)
if(commit MATCHES "^([0-9a-f]+) ([0-9]+)$")
  # Not git's own abbreviation: that one gets longer with the repository.
  string(SUBSTRING ${CMAKE_MATCH_1} 0 10 hash)
  set(HDTV_EPOCH ${CMAKE_MATCH_2})
else()
  message(STATUS "The commit of these sources is not known: neither git nor cmake/commit tells it")
  set(hash "")
  string(TIMESTAMP HDTV_EPOCH "%s" UTC)
endif()

# string(TIMESTAMP) and the packing tool take this time for the present.
set(environment "$ENV{SOURCE_DATE_EPOCH}")
set(ENV{SOURCE_DATE_EPOCH} ${HDTV_EPOCH})
if(hash)
  string(TIMESTAMP day "%Y%m%d" UTC)
  set(HDTV_PACKAGE_VERSION ${PROJECT_VERSION}+${day}.${hash}${changes})
else()
  set(HDTV_PACKAGE_VERSION ${PROJECT_VERSION}+0.unknown)
endif()
if(environment)
  set(HDTV_EPOCH ${environment})
  set(ENV{SOURCE_DATE_EPOCH} ${HDTV_EPOCH})
endif()
string(TIMESTAMP HDTV_PACKAGE_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
message(STATUS "Package version ${HDTV_PACKAGE_VERSION}")
