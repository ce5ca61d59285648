# Compiler options for every target, and functions for unity builds.

set( CMAKE_CXX_STANDARD 20 )
set( CMAKE_CXX_STANDARD_REQUIRED ON )
set( CMAKE_CXX_EXTENSIONS OFF )
set( CMAKE_POSITION_INDEPENDENT_CODE ON )
set( CMAKE_EXPORT_COMPILE_COMMANDS ON )
if( NOT CMAKE_BUILD_TYPE )
   set( CMAKE_BUILD_TYPE Release )
endif()
# At -O3, g++ 12 omits the destruction of handles when an exception passes; the tests of tracking/ fail.
set( CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG" )

find_program( VALEN_CCACHE ccache )
if( VALEN_CCACHE )
   # The cache distinguishes locales, and debhelper sets this one.
   set( CMAKE_CXX_COMPILER_LAUNCHER env -u LC_ALL "${VALEN_CCACHE}" )
endif()

# The compiler runs in the build directory, and the compiler cache can give it paths relative to that.
file( RELATIVE_PATH sourcesFromBuild "${CMAKE_BINARY_DIR}" "${CMAKE_SOURCE_DIR}/src" )

add_library( valen_flags INTERFACE )
target_compile_options( valen_flags INTERFACE
   -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wno-sign-conversion -Wnon-virtual-dtor -Woverloaded-virtual
   # Assertions and traces name files relative to src/, wherever the build is.
   "-fmacro-prefix-map=${CMAKE_SOURCE_DIR}/src/=" "-fmacro-prefix-map=${sourcesFromBuild}/="
   # Functions of the shared libraries are not replaced one by one, so they may be inlined.
   -fno-semantic-interposition )
if( CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13 )
   # g++ 12 warns wrongly about every inlined `"text" + std::string`.
   target_compile_options( valen_flags INTERFACE -Wno-restrict )
endif()
if( CMAKE_CXX_COMPILER_ID STREQUAL "GNU" )
   # Below this size (in kB), the compiler does not collect its garbage, which takes a tenth of its time.
   target_compile_options( valen_flags INTERFACE --param=ggc-min-heapsize=1000000 )
endif()
target_include_directories( valen_flags INTERFACE "${CMAKE_SOURCE_DIR}/src" )
if( VALEN_SANITIZE )
   target_compile_options( valen_flags INTERFACE
      -fsanitize=${VALEN_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer )
   target_link_options( valen_flags INTERFACE -fsanitize=${VALEN_SANITIZE} )
   if( VALEN_SANITIZE MATCHES "address" )
      # The descriptions of checks need two million relocations in a position-independent program, so that each
      # start takes almost twice as long.
      target_link_options( valen_flags INTERFACE "$<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:-no-pie>" )
   endif()
   if( VALEN_SANITIZE MATCHES "undefined" )
      # Opens a pipe for each look, and reports an error when no descriptor is left.
      target_compile_options( valen_flags INTERFACE -fno-sanitize=vptr )
   endif()
endif()
if( VALEN_COVERAGE )
   target_compile_options( valen_flags INTERFACE --coverage -O0 )
   target_link_options( valen_flags INTERFACE --coverage )
endif()

# valen_unity( TARGET KIND )
# Compiles all sources of TARGET together if VALEN_UNITY is KIND or "all". This makes full builds
# faster, and builds after a change slower.
set( VALEN_UNITY "" CACHE STRING "Compile all sources of a target together in: tests, or all" )
function( valen_unity target kind )
   if( VALEN_UNITY STREQUAL "all" OR VALEN_UNITY STREQUAL kind )
      set_target_properties( ${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 0 )
   endif()
endfunction()
