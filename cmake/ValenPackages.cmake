# The Debian packages that `cpack` builds: libvalen1, libvalen-dev, valend.
set( CPACK_GENERATOR DEB )
set( CPACK_COMPONENTS_ALL lib dev daemon )
set( CPACK_DEB_COMPONENT_INSTALL ON )
set( CPACK_COMPONENTS_GROUPING IGNORE )
set( CPACK_PACKAGING_INSTALL_PREFIX /usr )
set( CPACK_STRIP_FILES ON )
set( CPACK_PACKAGE_CONTACT "Valen maintainers <maintainers@valen.invalid>" )
set( CPACK_DEBIAN_FILE_NAME DEB-DEFAULT )
set( CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON )
set( CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${CMAKE_BINARY_DIR}/src" )
set( CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON )

set( CPACK_DEBIAN_LIB_PACKAGE_NAME libvalen1 )
set( CPACK_DEBIAN_LIB_PACKAGE_SECTION libs )
set( CPACK_COMPONENT_LIB_DESCRIPTION
"Graceful interface shutdown - libraries
 Sends the frames that protocol agents have queued for a network interface when
 it is shut down, and delays the shutdown for a configured time." )

set( CPACK_DEBIAN_DEV_PACKAGE_NAME libvalen-dev )
set( CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel )
set( CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libvalen1 (= ${PROJECT_VERSION})" )
set( CPACK_COMPONENT_DEV_DESCRIPTION
"Graceful interface shutdown - development files
 Headers, a CMake package and a pkg-config file, to embed the libraries in your
 own program." )

set( CPACK_DEBIAN_DAEMON_PACKAGE_NAME valend )
set( CPACK_DEBIAN_DAEMON_PACKAGE_SECTION net )
set( CPACK_DEBIAN_DAEMON_PACKAGE_DEPENDS "systemd, passwd" )
set( CPACK_DEBIAN_DAEMON_PACKAGE_CONTROL_EXTRA
   "${CMAKE_CURRENT_SOURCE_DIR}/packaging/debian/conffiles"
   "${CMAKE_CURRENT_SOURCE_DIR}/packaging/debian/postinst"
   "${CMAKE_CURRENT_SOURCE_DIR}/packaging/debian/prerm"
   "${CMAKE_CURRENT_SOURCE_DIR}/packaging/debian/postrm" )
set( CPACK_DEBIAN_DAEMON_PACKAGE_CONTROL_STRICT_PERMISSION ON )
set( CPACK_COMPONENT_DAEMON_DESCRIPTION
"Graceful interface shutdown daemon
 When an interface is shut down, valend sends the goodbye frames that are queued
 for it, keeps the link up for a configured time, and then sets it down.
 valenctl controls it." )

include( CPack )
