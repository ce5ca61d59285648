# How every target of the tree is built, and the functions by which a folder declares itself.

set( CMAKE_CXX_STANDARD 20 )
set( CMAKE_CXX_STANDARD_REQUIRED ON )
set( CMAKE_CXX_EXTENSIONS OFF )
set( CMAKE_POSITION_INDEPENDENT_CODE ON )
set( CMAKE_EXPORT_COMPILE_COMMANDS ON )
if( NOT CMAKE_BUILD_TYPE )
   set( CMAKE_BUILD_TYPE Release )
endif()
# At -O3 g++ 12 loses the destruction of handles on the way of an exception; the tests of the
# trackers show it.
set( CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG" )

find_program( VALEN_CCACHE ccache )
if( VALEN_CCACHE )
   set( CMAKE_CXX_COMPILER_LAUNCHER "${VALEN_CCACHE}" )
endif()

add_library( valen_flags INTERFACE )
target_compile_options( valen_flags INTERFACE
   -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wno-sign-conversion -Wnon-virtual-dtor -Woverloaded-virtual -Werror
   # Assertions and traces name files as the tree does, wherever it was built.
   "-fmacro-prefix-map=${CMAKE_SOURCE_DIR}/src/="
   # Nobody replaces single functions of the shared libraries, so they may be inlined.
   -fno-semantic-interposition )
if( CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13 )
   # A false alarm of g++ 12 on every `"text" + std::string` that it inlines.
   target_compile_options( valen_flags INTERFACE -Wno-restrict )
endif()
target_include_directories( valen_flags INTERFACE "${CMAKE_SOURCE_DIR}/src" )
if( VALEN_SANITIZE )
   target_compile_options( valen_flags INTERFACE
      -fsanitize=${VALEN_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer )
   target_link_options( valen_flags INTERFACE -fsanitize=${VALEN_SANITIZE} )
endif()
if( VALEN_COVERAGE )
   target_compile_options( valen_flags INTERFACE --coverage -O0 )
   target_link_options( valen_flags INTERFACE --coverage )
endif()

# valen_unity( TARGET KIND )
# Compiles a few sources of TARGET at a time, when VALEN_UNITY is KIND or "all": faster from scratch,
# slower after a change.
set( VALEN_UNITY "" CACHE STRING "What is compiled a few sources at a time: tests, daemon or all" )
function( valen_unity target kind )
   if( VALEN_UNITY STREQUAL "all" OR VALEN_UNITY STREQUAL kind )
      set_target_properties( ${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 5 )
   endif()
endfunction()
