# What every target of this project is built with.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)

add_library(pellmor_options INTERFACE)
target_compile_options(pellmor_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wold-style-cast
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

# A program of this project: warnings, and a runtime that costs no start-up time.
function(pellmor_add_program name)
  add_executable(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE toolKit pellmor_options)
  if(PELLMOR_STATIC_RUNTIME AND NOT PELLMOR_SANITIZE)
    target_link_options(${name} PRIVATE -static-libstdc++ -static-libgcc)
  endif()
  install(TARGETS ${name} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endfunction()
