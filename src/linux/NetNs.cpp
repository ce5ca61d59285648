#include "linux/NetNs.h"

#include "linux/DescriptorReserve.h"
#include "platform/quill/Assert.h"

#include <cerrno>
#include <fcntl.h>
#include <linux/nsfs.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Valen::Linux {

namespace {

constexpr char const * ownNamespace = "/proc/thread-self/ns/net";

std::string quoted( Corvid::NamespaceName const & name ) {
   return "network namespace \"" + name.stdString() + "\"";
}

[[noreturn]] void notThere( Corvid::NamespaceName const & name,
                            std::vector< std::string > const & directories ) {
   std::string where;
   for ( auto const & directory : directories ) {
      where += ( where.empty() ? "" : " or " ) + directory;
   }
   throw Quill::ErrnoException( quoted( name ) + " does not exist in " + where +
                                   "; create it with \"ip netns add " + name.stdString() + "\"",
                                ENOENT );
}

[[noreturn]] void notANamespace( std::string const & path, int fd ) {
   struct stat status;
   bool const directory = ::fstat( fd, &status ) == 0 && S_ISDIR( status.st_mode );
   throw Quill::ErrnoException( path + ( directory ? " is a directory, not a network namespace; "
                                                     "remove the directory"
                                                   : " is not a network namespace; remove the "
                                                     "file, or mount a network namespace on it" ),
                                EINVAL );
}

[[noreturn]] void cannotOpen( std::string const & path, int number ) {
   if ( number == EMFILE || number == ENFILE ) {
      throw Quill::ErrnoException( "no file descriptor left to open " + path + ": " +
                                      errorText( number ) +
                                      "; raise the limit (LimitNOFILE= of the service)",
                                   number );
   }
   throwErrno( "cannot open " + path, number );
}

NetNsIdentity identityOf( int fd ) {
   struct stat status;
   if ( ::fstat( fd, &status ) < 0 ) {
      throwErrno( "cannot stat a network namespace", errno );
   }
   return { status.st_dev, status.st_ino };
}

Fd openFile( std::string const & path ) noexcept {
   return DescriptorReserve::ofProcess().open(
      [ & ] { return ::open( path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK ); } );
}

} // namespace

std::string NetNsIdentity::text() const {
   return std::to_string( device ) + ":" + std::to_string( inode );
}

NetNsDirectories::NetNsDirectories( std::vector< std::string > directories )
    : directories_( std::move( directories ) ) {}

NetNs NetNsDirectories::open( Corvid::NamespaceName const & name ) const {
   if ( name == Corvid::NamespaceName::defaultNamespace() ) {
      auto const fd = openFile( ownNamespace );
      if ( !fd ) {
         cannotOpen( ownNamespace, errno );
      }
      return { name, identityOf( fd.get() ), Fd() };
   }
   if ( !validName( name.view() ) ) {
      throw Quill::ErrnoException(
         "\"" + name.stdString() + "\" cannot be the name of a network namespace", EINVAL );
   }
   for ( auto const & directory : directories_ ) {
      auto const path = directory + "/" + name.stdString();
      auto fd = openFile( path );
      if ( fd ) {
         auto const type = ::ioctl( fd.get(), NS_GET_NSTYPE );
         if ( type < 0 && errno != ENOTTY ) { // ENOTTY: the file is not a namespace
            throwErrno( "cannot find out whether " + path + " is a network namespace", errno );
         }
         if ( type != CLONE_NEWNET ) {
            notANamespace( path, fd.get() );
         }
         auto const identity = identityOf( fd.get() );
         return { name, identity, std::move( fd ) };
      }
      if ( errno != ENOENT && errno != ENOTDIR ) {
         cannotOpen( path, errno );
      }
   }
   notThere( name, directories_ );
}

std::optional< NetNsIdentity >
NetNsDirectories::identity( Corvid::NamespaceName const & name ) const noexcept {
   Quill::Expect const expected( Quill::ExceptionId::errnoFailure );
   try {
      return open( name ).identity;
   } catch ( Quill::ErrnoException const & ) {
      return std::nullopt;
   }
}

bool NetNsDirectories::validName( std::string_view name ) noexcept {
   return !name.empty() && name != "." && name.find( ".." ) == name.npos &&
          name.find( '/' ) == name.npos && name.find( '\0' ) == name.npos;
}

NetNsScope::NetNsScope( NetNs const & netNs ) {
   if ( !netNs.fd ) {
      return;
   }
   home_ = openFile( ownNamespace );
   if ( !home_ ) {
      cannotOpen( ownNamespace, errno );
   }
   if ( ::setns( netNs.fd.get(), CLONE_NEWNET ) == 0 ) {
      return;
   }
   auto const number = errno;
   home_.close();
   if ( number == EPERM ) {
      throw Quill::ErrnoException(
         "no privilege to enter " + quoted( netNs.name ) + "; CAP_SYS_ADMIN is needed", EPERM );
   }
   throwErrno( "cannot enter " + quoted( netNs.name ), number );
}

NetNsScope::~NetNsScope() {
   if ( home_ && ::setns( home_.get(), CLONE_NEWNET ) < 0 ) {
      Quill::abortWith( "cannot return to the process's own network namespace" );
   }
}

} // namespace Valen::Linux
