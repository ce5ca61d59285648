# What `cmake --install` puts where, in three components: "lib", the shared libraries; "dev", what it
# takes to build against them (headers, a CMake package, pkg-config files); "agent", the programs and
# what an operator's system needs around them.
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

install( TARGETS ${libraries} EXPORT valenTargets
   LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT lib NAMELINK_COMPONENT dev )
install( DIRECTORY src/platform src/types src/linux DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/valen"
   COMPONENT dev FILES_MATCHING PATTERN "*.h" )
install( FILES src/agent/RunnabilitySm.h DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/valen/agent"
   COMPONENT dev )
set( packageDir "${CMAKE_INSTALL_LIBDIR}/cmake/valen" )
install( EXPORT valenTargets NAMESPACE valen:: DESTINATION "${packageDir}" COMPONENT dev )
file( WRITE "${CMAKE_BINARY_DIR}/valenConfig.cmake"
   "include( \"\${CMAKE_CURRENT_LIST_DIR}/valenTargets.cmake\" )\n" )
write_basic_package_version_file( "${CMAKE_BINARY_DIR}/valenConfigVersion.cmake"
   COMPATIBILITY SameMinorVersion )
install( FILES "${CMAKE_BINARY_DIR}/valenConfig.cmake" "${CMAKE_BINARY_DIR}/valenConfigVersion.cmake"
   DESTINATION "${packageDir}" COMPONENT dev )

configure_file( cmake/valen.pc.in "${CMAKE_BINARY_DIR}/valen.pc" @ONLY )
install( FILES "${CMAKE_BINARY_DIR}/valen.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT dev )

if( NOT TARGET valend )
   return()
endif()
install( TARGETS valend DESTINATION "${CMAKE_INSTALL_SBINDIR}" COMPONENT agent )
install( TARGETS valenctl DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT agent )
install( FILES docs/man/valenctl.1 DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT agent )
install( FILES "${CMAKE_BINARY_DIR}/man/valen.yaml.5" DESTINATION "${CMAKE_INSTALL_MANDIR}/man5" COMPONENT agent )
install( FILES "${CMAKE_BINARY_DIR}/man/valend.8" DESTINATION "${CMAKE_INSTALL_MANDIR}/man8" COMPONENT agent )
# Packages, whose prefix is /usr, have an absolute /etc, where the rest of the system looks. Else all
# stays under the prefix, also under one that is given when it is installed.
set( etc "${CMAKE_INSTALL_SYSCONFDIR}" )
if( CMAKE_INSTALL_PREFIX STREQUAL "/usr" )
   set( etc "${CMAKE_INSTALL_FULL_SYSCONFDIR}" )
endif()
install( FILES packaging/systemd/valend.service packaging/systemd/valend-drain.service
   DESTINATION lib/systemd/system COMPONENT agent )
install( FILES packaging/systemd/valen.sysusers DESTINATION lib/sysusers.d RENAME valen.conf
   COMPONENT agent )
install( FILES packaging/valen.yaml DESTINATION "${etc}/valen" COMPONENT agent )
install( DIRECTORY DESTINATION "${etc}/valen/conf.d" COMPONENT agent )
install( PROGRAMS packaging/hooks/ifupdown RENAME valen
   DESTINATION "${etc}/network/if-pre-down.d" COMPONENT agent )
install( PROGRAMS packaging/hooks/networkmanager RENAME valen
   DESTINATION lib/NetworkManager/dispatcher.d/pre-down.d COMPONENT agent )
