# Rooms: the directories of src/. Each is an object library and lists the rooms that it may include. A room
# can list only rooms that were declared before it, so no include points up and there are no circles. The
# tests "rooms.*" check the sources (CheckRoom.cmake).

# valen_room( PATH source... [SEPARATE] [MAY_INCLUDE room...] )
# Declares the room src/PATH, as the object library valen_PATH with "_" for "/". A name in MAY_INCLUDE
# is a room, or a directory, which means all rooms in it. SEPARATE: sources of the room have names in common
# (each has its own trace unit, or a protocol's constants), so that they are never compiled together.
function( valen_room path )
   cmake_parse_arguments( arg "SEPARATE" "" "MAY_INCLUDE" ${ARGN} )
   valen_rooms_named( allowed ${arg_MAY_INCLUDE} )
   valen_room_target( target ${path} )
   add_library( ${target} OBJECT ${arg_UNPARSED_ARGUMENTS} )
   target_link_libraries( ${target} PUBLIC valen_flags )
   if( NOT arg_SEPARATE )
      valen_unity( ${target} all )
   endif()
   set_property( TARGET ${target} PROPERTY VALEN_MAY_INCLUDE "${allowed}" )
   set_property( GLOBAL APPEND PROPERTY VALEN_ROOMS ${path} )
endfunction()

function( valen_room_target result path )
   string( REPLACE "/" "_" name "${path}" )
   set( ${result} "valen_${name}" PARENT_SCOPE )
endfunction()

# The rooms of the names. A name without a room is an error.
function( valen_rooms_named result )
   get_property( rooms GLOBAL PROPERTY VALEN_ROOMS )
   set( named "" )
   foreach( name ${ARGN} )
      set( found ${rooms} )
      list( FILTER found INCLUDE REGEX "^${name}(/|$)" )
      if( name IN_LIST rooms )
         set( found ${name} ) # the room itself, not those inside it
      endif()
      if( NOT found )
         message( FATAL_ERROR "room \"${name}\" is not declared yet; a room can include only rooms that are declared before it" )
      endif()
      list( APPEND named ${found} )
   endforeach()
   list( REMOVE_DUPLICATES named )
   set( ${result} "${named}" PARENT_SCOPE )
endfunction()

# valen_objects( TARGET room... )
# Links the objects of the named rooms, and of all rooms that these may include, into TARGET.
function( valen_objects target )
   valen_rooms_named( todo ${ARGN} )
   set( done "" )
   while( todo )
      list( POP_FRONT todo room )
      if( NOT room IN_LIST done )
         list( APPEND done ${room} )
         valen_room_target( objects ${room} )
         target_link_libraries( ${target} PRIVATE ${objects} )
         get_target_property( below ${objects} VALEN_MAY_INCLUDE )
         list( APPEND todo ${below} )
      endif()
   endwhile()
endfunction()

# Adds a test for each room, and one that makes the check fail.
function( valen_room_tests )
   get_property( rooms GLOBAL PROPERTY VALEN_ROOMS )
   string( REPLACE ";" "," declared "${rooms}" )
   set( check "${CMAKE_SOURCE_DIR}/cmake/CheckRoom.cmake" )
   foreach( room ${rooms} )
      valen_room_target( target ${room} )
      get_target_property( allowed ${target} VALEN_MAY_INCLUDE )
      string( REPLACE ";" "," allowed "${allowed}" )
      add_test( NAME rooms.${room}
         COMMAND "${CMAKE_COMMAND}" "-DROOT=${CMAKE_SOURCE_DIR}/src" "-DROOM=${room}"
                 "-DROOMS=${declared}" "-DMAY_INCLUDE=${allowed}" -P "${check}" )
   endforeach()
   add_test( NAME rooms.APlantedIncludeIsFound
      COMMAND "${CMAKE_SOURCE_DIR}/tests/rooms/planted-include" "${CMAKE_COMMAND}" "${check}" )
endfunction()
