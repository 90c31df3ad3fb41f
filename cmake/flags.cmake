# Warnings, hardening and sanitizers, the same for every target of the project.
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)
if(HDTV_STATIC)
  set(CMAKE_FIND_LIBRARY_SUFFIXES .a)
  add_link_options(-static)
else()
  set(CMAKE_POSITION_INDEPENDENT_CODE ON)
endif()

# libevent is built this way on 32-bit machines, and its headers and ours have to agree. time_t
# stays as wide as in the machine's libevent.
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  add_compile_definitions(_FILE_OFFSET_BITS=64)
endif()

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion)
if(HDTV_WERROR)
  add_compile_options(-Werror)
endif()

# No code here is hot enough to justify the size of -O3; on the board, not even that of -O2.
if(HDTV_SMALL)
  set(HDTV_OPTIMIZATION -Os)
  add_link_options(-fipa-pta -Wl,--gc-sections)
else()
  set(HDTV_OPTIMIZATION -O2)
endif()
string(REPLACE "-O3" "${HDTV_OPTIMIZATION}" CMAKE_CXX_FLAGS_RELEASE "${CMAKE_CXX_FLAGS_RELEASE}")

add_compile_options(-fstack-protector-strong)
add_link_options(-Wl,-z,relro,-z,now)
if(HDTV_SANITIZERS)
  # Fortified calls would hide overflows from the sanitizers' own checks.
  add_compile_options(-fsanitize=${HDTV_SANITIZERS} -fno-sanitize-recover=all
                      -fno-omit-frame-pointer -O1 -g)
  add_link_options(-fsanitize=${HDTV_SANITIZERS})
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND HDTV_SANITIZERS MATCHES "undefined")
    # This check opens a pipe for each look, and takes it for an error if a test has used up all descriptors.
    add_compile_options(-fno-sanitize=vptr)
  endif()
else()
  add_compile_options($<$<CONFIG:Release>:-U_FORTIFY_SOURCE> $<$<CONFIG:Release>:-D_FORTIFY_SOURCE=2>)
endif()

# The package's debugger files name the sources by a path that is the same wherever they are built, and
# a build-id holds each of them to its program.
if(HDTV_DEBIAN)
  # The last one that fits counts.
  add_compile_options(-g -ffile-prefix-map=${PROJECT_SOURCE_DIR}=/usr/src/hdtv
                      -ffile-prefix-map=${CMAKE_BINARY_DIR}=/usr/src/hdtv/build)
  add_link_options(-Wl,--build-id=sha1)
endif()

# libFuzzer follows what every file executes, the product's above all.
if(HDTV_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# Threads count too, so atomically.
if(HDTV_COVERAGE)
  set(HDTV_COVERAGE_OPTIONS --coverage -fprofile-update=atomic)
  add_compile_options(${HDTV_COVERAGE_OPTIONS})
  add_link_options(--coverage)
endif()

# For what ships: nothing in it throws or asks for a type at run time, so it needs no C++ runtime library.
function(set_product_options target)
  target_compile_options(${target} PRIVATE -fno-exceptions -fno-rtti)
  set_target_properties(${target} PROPERTIES INTERPROCEDURAL_OPTIMIZATION ${HDTV_SMALL})
endfunction()
