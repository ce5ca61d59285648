cmake_policy( VERSION 3.25 )
# Copies the public headers, and makes them include each other below valen/.
#   cmake -DROOT=<src> -DOUT=<directory> -DHEADERS=<path,...> -P CopyHeaders.cmake
# A copy that did not change keeps its time, so that nothing is compiled again because of it.
string( REPLACE "," ";" HEADERS "${HEADERS}" )

foreach( header ${HEADERS} )
   file( STRINGS "${ROOT}/${header}" lines REGEX "^#include \"" )
   foreach( line ${lines} )
      string( REGEX REPLACE "^#include \"([^\"]+)\".*" "\\1" included "${line}" )
      if( NOT included IN_LIST HEADERS )
         message( SEND_ERROR "${header} includes \"${included}\", which is not in the list of public headers; "
                             "add it to cmake/ValenHeaders.cmake, or do without it" )
      endif()
   endforeach()

   file( READ "${ROOT}/${header}" text )
   string( REGEX REPLACE "#include \"([^\"]+)\"" "#include <valen/\\1>" text "${text}" )
   set( copy "${OUT}/valen/${header}" )
   set( before "" )
   if( EXISTS "${copy}" )
      file( READ "${copy}" before )
   endif()
   if( NOT text STREQUAL before )
      file( WRITE "${copy}" "${text}" )
   endif()
   list( APPEND copies "${copy}" )
endforeach()

# Headers that are no longer in the list are not installed.
file( GLOB_RECURSE present "${OUT}/valen/*.h" )
list( REMOVE_ITEM present ${copies} )
if( present )
   file( REMOVE ${present} )
endif()
file( TOUCH "${OUT}/copied" )
