# What `cmake --install` puts where: programs, the shared libraries with the headers of all that
# they show, a CMake package and pkg-config files.
include( CMakePackageConfigHelpers )

set( libraries valen-platform )
foreach( target valen valen-linux )
   if( TARGET ${target} )
      list( APPEND libraries ${target} )
   endif()
endforeach()
set_target_properties( valen-platform PROPERTIES EXPORT_NAME platform )
if( TARGET valen-linux )
   set_target_properties( valen-linux PROPERTIES EXPORT_NAME linux )
endif()

install( TARGETS ${libraries} EXPORT valenTargets LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" )
install( DIRECTORY src/platform src/types src/linux DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/valen"
   FILES_MATCHING PATTERN "*.h" )
install( FILES src/agent/RunnabilitySm.h DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/valen/agent" )
foreach( program valend valenctl )
   if( TARGET ${program} )
      install( TARGETS ${program}
         RUNTIME DESTINATION "$<IF:$<STREQUAL:${program},valend>,${CMAKE_INSTALL_SBINDIR},${CMAKE_INSTALL_BINDIR}>" )
   endif()
endforeach()

set( packageDir "${CMAKE_INSTALL_LIBDIR}/cmake/valen" )
install( EXPORT valenTargets NAMESPACE valen:: DESTINATION "${packageDir}" )
file( WRITE "${CMAKE_BINARY_DIR}/valenConfig.cmake"
   "include( \"\${CMAKE_CURRENT_LIST_DIR}/valenTargets.cmake\" )\n" )
write_basic_package_version_file( "${CMAKE_BINARY_DIR}/valenConfigVersion.cmake"
   COMPATIBILITY SameMinorVersion )
install( FILES "${CMAKE_BINARY_DIR}/valenConfig.cmake" "${CMAKE_BINARY_DIR}/valenConfigVersion.cmake"
   DESTINATION "${packageDir}" )

configure_file( cmake/valen.pc.in "${CMAKE_BINARY_DIR}/valen.pc" @ONLY )
install( FILES "${CMAKE_BINARY_DIR}/valen.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" )
