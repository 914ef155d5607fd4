# SPDX-License-Identifier: MIT
# What every target of this project is built with.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)

add_library(pellmor_options INTERFACE)
target_compile_options(pellmor_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wold-style-cast
  # g++ 12 fears an overlap within std::string::insert() that cannot be (GCC bug 105651).
  $<$<AND:$<CXX_COMPILER_ID:GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict>
  $<$<BOOL:${PELLMOR_WERROR}>:-Werror>)

if(PELLMOR_SANITIZE)
  set(sanitizers -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
    # Unsigned arithmetic that wraps is a fault here too; the standard library's own is left alone.
    list(APPEND sanitizers -fsanitize=unsigned-integer-overflow,implicit-integer-truncation
      -fsanitize-ignorelist=${CMAKE_CURRENT_LIST_DIR}/sanitizer-ignorelist.txt)
  endif()
  target_compile_options(pellmor_options INTERFACE ${sanitizers})
  target_link_options(pellmor_options INTERFACE ${sanitizers})
endif()

if(PELLMOR_COVERAGE)
  target_compile_options(pellmor_options INTERFACE --coverage)
  target_link_options(pellmor_options INTERFACE --coverage)
endif()

if(PELLMOR_SANITIZE OR PELLMOR_BUILD_TESTS)
  target_compile_definitions(pellmor_options INTERFACE _GLIBCXX_ASSERTIONS)
endif()

# Makes a library of this project one for others: known as Pellmor::<name>, installed as lib<file> with the
# public headers, which lie in <base> and are found as "Header.h" and as <pellmor/Header.h>.
#
#   pellmor_publish(<name> OUTPUT_NAME <file> BASE <base> HEADERS <header>... [HIDDEN <namespace>::<class>...])
function(pellmor_publish name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "OUTPUT_NAME;BASE" "HEADERS;HIDDEN")
  add_library(Pellmor::${name} ALIAS ${name})
  # What is public may change with every minor version: members are part of it.
  set_target_properties(${name} PROPERTIES
    OUTPUT_NAME ${arg_OUTPUT_NAME}
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}
    INSTALL_RPATH $ORIGIN)
  if(PELLMOR_BUILD_PYTHON) # a module is a shared object, and takes the library in
    set_target_properties(${name} PROPERTIES POSITION_INDEPENDENT_CODE ON)
  endif()
  target_compile_features(${name} PUBLIC cxx_std_20)
  target_link_libraries(${name} PRIVATE $<BUILD_INTERFACE:pellmor_options>)

  # The build tree has the headers where an installed tree has them.
  set(includes ${PROJECT_BINARY_DIR}/include)
  foreach(header IN LISTS arg_HEADERS)
    get_filename_component(folder ${header} DIRECTORY)
    file(MAKE_DIRECTORY ${includes}/pellmor/${folder})
    file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR}/${arg_BASE}/${header} ${includes}/pellmor/${header} SYMBOLIC)
    if(PELLMOR_INSTALL)
      install(FILES ${arg_BASE}/${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/pellmor/${folder}
        COMPONENT development)
    endif()
  endforeach()
  target_include_directories(${name} PUBLIC
    "$<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/${arg_BASE};${includes}>"
    "$<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/pellmor;${CMAKE_INSTALL_INCLUDEDIR}>")

  if(BUILD_SHARED_LIBS)
    # A shared library shows what the public headers declare, and nothing else. Each source sees them first
    # under default visibility, so that none of them has to mark its declarations; behind those of private
    # classes that they name as friends.
    set(face ${CMAKE_CURRENT_BINARY_DIR}/${name}-face.h)
    list(TRANSFORM arg_HEADERS REPLACE "(.+)" "#include \"${CMAKE_CURRENT_SOURCE_DIR}/${arg_BASE}/\\1\"" OUTPUT_VARIABLE lines)
    list(JOIN lines "\n" lines)
    string(REGEX REPLACE "([^:;]+)::([^:;]+);?" "namespace \\1 { class \\2; }\n" hidden "${arg_HIDDEN}")
    file(CONFIGURE OUTPUT ${face}
      CONTENT "#pragma once\n@hidden@#pragma GCC visibility push(default)\n@lines@\n#pragma GCC visibility pop\n" @ONLY)
    target_compile_options(${name} PRIVATE -include ${face})
    set_target_properties(${name} PROPERTIES CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  endif()

  if(PELLMOR_INSTALL)
    install(TARGETS ${name} EXPORT PellmorTargets
      ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
      LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
  endif()
endfunction()

# A program of this project: warnings, and a runtime that costs no start-up time.
function(pellmor_add_program name)
  add_executable(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE toolKit slam pellmor_options)
  if(BUILD_SHARED_LIBS)
    file(RELATIVE_PATH libraries ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
    set_target_properties(${name} PROPERTIES INSTALL_RPATH $ORIGIN/${libraries})
  elseif(PELLMOR_STATIC_RUNTIME AND NOT PELLMOR_SANITIZE)
    target_link_options(${name} PRIVATE -static-libstdc++ -static-libgcc -Wl,--gc-sections)
  endif()
  if(PELLMOR_INSTALL)
    install(TARGETS ${name} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT programs)
  endif()
endfunction()

# Finds what pellmor-edit is built on, or ends the configuration with a word on how to go on.
function(pellmor_need package debian)
  find_package(${package} QUIET)
  if(NOT ${package}_FOUND)
    message(FATAL_ERROR "pellmor-edit needs ${package} (Debian: ${debian}), which was not found. "
      "Install it, or configure with -DPELLMOR_BUILD_EDIT=OFF for all but this program.")
  endif()
endfunction()
