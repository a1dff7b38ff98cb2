# Compile options that every target of this project carries, as one interface library.
add_library(tessaly_options INTERFACE)
target_compile_options(tessaly_options INTERFACE -Wall -Wextra -Werror -Wshadow -Wnon-virtual-dtor
  -Wno-missing-field-initializers)  # designated initialisers leave fields at their defaults on purpose
target_compile_definitions(tessaly_options INTERFACE QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII QT_NO_FOREACH)
target_include_directories(tessaly_options INTERFACE ${PROJECT_SOURCE_DIR})

set(TESSALY_SANITIZE "" CACHE STRING "Sanitizers to build with, as -fsanitize takes them")
if(TESSALY_SANITIZE)
  target_compile_options(tessaly_options INTERFACE
    -fsanitize=${TESSALY_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer -O1 -g1)  # a finding names lines
  if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    # What the instrumentation adds leads this warning astray; the other builds have it.
    target_compile_options(tessaly_options INTERFACE -Wno-maybe-uninitialized)
  endif()
  target_link_options(tessaly_options INTERFACE -fsanitize=${TESSALY_SANITIZE})
endif()

# tessaly_library(NAME [MOC] [HEADERS set] SOURCES... [LINKS...]): one static library a folder. MOC where a class has slots
# or signals; HEADERS as in cmake/Headers.cmake.
function(tessaly_library name)
  cmake_parse_arguments(arg "MOC" "HEADERS" "SOURCES;LINKS" ${ARGN})
  add_library(tessaly_${name} STATIC ${arg_SOURCES})
  add_library(tessaly::${name} ALIAS tessaly_${name})
  target_link_libraries(tessaly_${name} PUBLIC tessaly_options ${arg_LINKS})
  if(arg_MOC)
    set_target_properties(tessaly_${name} PROPERTIES AUTOMOC ON)
  endif()
  if(arg_HEADERS)
    tessaly_use_headers(tessaly_${name} ${arg_HEADERS})
  endif()
endfunction()
