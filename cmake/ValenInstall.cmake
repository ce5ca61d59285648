# What `cmake --install` installs, in three components: "lib", the shared libraries; "dev", the files for
# building against them (headers, a CMake package, a pkg-config file); "daemon", the programs and the
# files around them that an operator needs.
include( CMakePackageConfigHelpers )

set_target_properties( valen-platform PROPERTIES EXPORT_NAME platform )
set_target_properties( valen-linux PROPERTIES EXPORT_NAME linux )
install( TARGETS valen-platform valen valen-linux EXPORT valenTargets
   LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT lib NAMELINK_COMPONENT dev )
install( DIRECTORY "${VALEN_INCLUDE_DIR}/valen" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT dev )
set( packageDir "${CMAKE_INSTALL_LIBDIR}/cmake/valen" )
install( EXPORT valenTargets NAMESPACE valen:: DESTINATION "${packageDir}" COMPONENT dev )
file( WRITE "${CMAKE_BINARY_DIR}/valenConfig.cmake"
   "include( \"\${CMAKE_CURRENT_LIST_DIR}/valenTargets.cmake\" )\n" )
write_basic_package_version_file( "${CMAKE_BINARY_DIR}/valenConfigVersion.cmake"
   COMPATIBILITY SameMinorVersion )
install( FILES "${CMAKE_BINARY_DIR}/valenConfig.cmake" "${CMAKE_BINARY_DIR}/valenConfigVersion.cmake"
   DESTINATION "${packageDir}" COMPONENT dev )

# valen.pc finds its prefix from where it is itself, so that an installed tree can be moved.
set( pkgconfigDir "${CMAKE_INSTALL_LIBDIR}/pkgconfig" )
file( RELATIVE_PATH VALEN_PC_TO_PREFIX "/${pkgconfigDir}" "/" )
string( REGEX REPLACE "/$" "" VALEN_PC_TO_PREFIX "${VALEN_PC_TO_PREFIX}" )
configure_file( cmake/valen.pc.in "${CMAKE_BINARY_DIR}/valen.pc" @ONLY )
install( FILES "${CMAKE_BINARY_DIR}/valen.pc" DESTINATION "${pkgconfigDir}" COMPONENT dev )

install( TARGETS valend DESTINATION "${CMAKE_INSTALL_SBINDIR}" COMPONENT daemon )
install( TARGETS valenctl DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT daemon )
install( FILES docs/man/valenctl.1 DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT daemon )
install( FILES "${CMAKE_BINARY_DIR}/man/valen.yaml.5" DESTINATION "${CMAKE_INSTALL_MANDIR}/man5" COMPONENT daemon )
install( FILES "${CMAKE_BINARY_DIR}/man/valend.8" DESTINATION "${CMAKE_INSTALL_MANDIR}/man8" COMPONENT daemon )
install( FILES packaging/systemd/valend.service packaging/systemd/valend-drain.service
   DESTINATION lib/systemd/system COMPONENT daemon )
install( FILES packaging/systemd/valen.sysusers DESTINATION lib/sysusers.d RENAME valen.conf
   COMPONENT daemon )
install( PROGRAMS packaging/hooks/networkmanager RENAME valen
   DESTINATION lib/NetworkManager/dispatcher.d/pre-down.d COMPONENT daemon )
# Where Python and Ansible look for modules, if the prefix is /usr.
install( FILES clients/python/valen.py DESTINATION lib/python3/dist-packages COMPONENT daemon )
install( FILES clients/ansible/library/valen_interface.py DESTINATION share/ansible/plugins/modules
   COMPONENT daemon )

# The system's configuration. `cmake --install --prefix` with another prefix than the configured one writes
# it below that prefix. Otherwise its directory is the configured one, and /etc for the prefix /usr.
set( tree "${CMAKE_BINARY_DIR}/etc" )
file( REMOVE_RECURSE "${tree}" )
file( MAKE_DIRECTORY "${tree}/valen/conf.d" )
configure_file( packaging/valen.yaml "${tree}/valen/valen.yaml" COPYONLY )
foreach( directory if-pre-down.d if-down.d )
   configure_file( packaging/hooks/ifupdown "${tree}/network/${directory}/valen" COPYONLY )
endforeach()
set( etc "${CMAKE_INSTALL_SYSCONFDIR}" )
if( CMAKE_INSTALL_PREFIX STREQUAL "/usr" )
   set( etc "${CMAKE_INSTALL_FULL_SYSCONFDIR}" )
endif()
install( CODE "
   set( etc \"${etc}\" )
   if( NOT CMAKE_INSTALL_PREFIX STREQUAL \"${CMAKE_INSTALL_PREFIX}\" )
      set( etc etc )
   endif()
   cmake_path( ABSOLUTE_PATH etc BASE_DIRECTORY \"\${CMAKE_INSTALL_PREFIX}\" )
   file( INSTALL DESTINATION \"\${etc}\" TYPE DIRECTORY FILES \"${tree}/\" USE_SOURCE_PERMISSIONS )
   " COMPONENT daemon )
