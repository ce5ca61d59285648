#include "database/Connector.h"

#include "linux/UnixAddress.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Database {

namespace {

using Valen::Linux::errorText;
using Valen::Linux::Fd;

// How long the end of the process waits for a name server.
constexpr std::chrono::milliseconds endTimeout{ 100 };
constexpr std::size_t longestPassword = 4096;

// The first line of the file. Sets `error` if no password can be read.
std::string passwordOf( std::string const & path, std::string & error ) {
   // Not waiting: the file may be a pipe.
   Fd const file( ::open( path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK ) );
   struct stat status {};
   if ( !file || ::fstat( file.get(), &status ) < 0 ) {
      error = "password file " + path + ": " + errorText( errno );
      return {};
   }
   if ( !S_ISREG( status.st_mode ) || ( status.st_mode & S_IROTH ) ) {
      error = "password file " + path +
              ( S_ISREG( status.st_mode ) ? " can be read by all users (run: chmod o= " + path + ")"
                                          : " is not a regular file" );
      return {};
   }
   std::string content( longestPassword + 1, '\0' );
   auto const count = ::read( file.get(), content.data(), content.size() );
   content.resize( static_cast< std::size_t >( std::max< ssize_t >( count, 0 ) ) );
   auto const password = content.substr( 0, content.find( '\n' ) );
   if ( count < 0 || password.empty() || password.size() > longestPassword ) {
      error = "password file " + path + ": " +
              ( count < 0 ? errorText( errno )
                          : "expected a password of 1 to " + std::to_string( longestPassword ) +
                               " bytes in the first line" );
      return {};
   }
   return password;
}

} // namespace

Connector::Connector( Valen::Linux::EventLoop & loop, Address address, Ends ends )
    : loop_( loop ), address_( std::move( address ) ), ends_( std::move( ends ) ),
      posted_( loop.workQueue(), "database connector" ) {}

Connector::~Connector() {
   stop();
}

void Connector::start() {
   if ( state_ != State::stopped ) {
      return;
   }
   state_ = State::preparing;
   if ( jobRuns_ ) {
      return; // the answer to an earlier attempt is as good
   }
   if ( !needsThread() ) {
      posted_.post( [ this ] {
         if ( state_ == State::preparing ) {
            prepared( prepare( address_ ) );
         }
      } );
      return;
   }
   if ( !worker_ ) {
      worker_.emplace( loop_, "valen-database", endTimeout );
   }
   jobRuns_ = true;
   worker_->run( [ this, address = address_ ]() -> Valen::Linux::Worker::Work {
      auto found = std::make_shared< Found >( prepare( address ) );
      return [ this, found = std::move( found ) ] { // on the loop, if the worker still exists
         jobRuns_ = false;
         if ( state_ == State::preparing ) {
            prepared( std::move( *found ) );
         }
      };
   } );
}

void Connector::stop() noexcept {
   if ( state_ == State::connecting ) {
      ++next_;
   }
   state_ = State::stopped;
   if ( socket_ ) {
      loop_.descriptorDel( socket_.get() );
      socket_.close();
   }
}

// --- What may wait -------------------------------------------------------------------------------

// Whether preparing may wait for a disk or a name server.
bool Connector::needsThread() const {
   return !address_.passwordFile.empty() ||
          ( address_.path.empty() && resolve( address_, AI_NUMERICHOST ).addresses.empty() );
}

Connector::Found Connector::prepare( Address const & address ) {
   auto found = resolve( address, 0 );
   found.password = address.password;
   if ( found.error.empty() && !address.passwordFile.empty() ) {
      found.password = passwordOf( address.passwordFile, found.error );
   }
   return found;
}

Connector::Found Connector::resolve( Address const & address, int flags ) {
   Found found;
   auto const add = [ & ]( sockaddr const * bytes, socklen_t size ) {
      auto & added = found.addresses.emplace_back();
      added.size = size;
      std::memcpy( &added.storage, bytes, size );
   };
   if ( !address.path.empty() ) {
      if ( auto const path = Valen::Linux::UnixAddress::at( address.path ) ) {
         add( path->get(), path->size() );
      } else {
         found.error = "the path does not fit in an address";
      }
      return found;
   }
   addrinfo hints{};
   hints.ai_socktype = SOCK_STREAM;
   hints.ai_flags = flags | AI_NUMERICSERV;
   addrinfo * list = nullptr;
   auto const error =
      ::getaddrinfo( address.host.c_str(), std::to_string( address.port ).c_str(), &hints, &list );
   std::unique_ptr< addrinfo, decltype( &::freeaddrinfo ) > const owner( list, &::freeaddrinfo );
   if ( error ) {
      found.error = "host " + address.host + ": " +
                    ( error == EAI_SYSTEM ? errorText( errno ) : ::gai_strerror( error ) );
   }
   for ( auto const * entry = error ? nullptr : list; entry; entry = entry->ai_next ) {
      add( entry->ai_addr, entry->ai_addrlen );
   }
   return found;
}

// --- On the loop ---------------------------------------------------------------------------------

void Connector::prepared( Found found ) {
   if ( !found.error.empty() ) {
      return fail( found.error );
   }
   found_ = std::move( found );
   state_ = State::connecting;
   tried_ = 0;
   connectNext();
}

void Connector::connectNext() {
   auto const & address = found_.addresses[ next_ % found_.addresses.size() ];
   ++tried_;
   socket_ =
      Fd( ::socket( address.storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0 ) );
   if ( !socket_ ) {
      auto const error = errno;
      return fail( "socket: " + errorText( error ) +
                   ( error == EAFNOSUPPORT
                        ? " (a service needs it in RestrictAddressFamilies= of its unit)"
                        : "" ) );
   }
   if ( address.storage.ss_family != AF_UNIX ) {
      int const on =
         1; // commands are written together; a reply must not wait for an acknowledgment
      ::setsockopt( socket_.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on );
   }
   if ( ::connect( socket_.get(), reinterpret_cast< sockaddr const * >( &address.storage ),
                   address.size ) < 0 &&
        errno != EINPROGRESS ) {
      return fail( "connect: " + errorText( errno ) );
   }
   loop_.descriptorIs( socket_.get(), EPOLLOUT, "database connector",
                       [ this ]( U32 ) { ready(); } );
}

void Connector::ready() {
   int error = 0;
   socklen_t size = sizeof error;
   ::getsockopt( socket_.get(), SOL_SOCKET, SO_ERROR, &error, &size );
   if ( error ) {
      return fail( "connect: " + errorText( error ) );
   }
   loop_.descriptorDel( socket_.get() );
   state_ = State::stopped;
   ends_.connected( { std::move( socket_ ), std::move( found_.password ) } );
}

// Tries the next address, or reports.
void Connector::fail( std::string const & why ) {
   bool const more = state_ == State::connecting && tried_ < found_.addresses.size();
   if ( more ) {
      if ( socket_ ) {
         loop_.descriptorDel( socket_.get() );
         socket_.close();
      }
      ++next_;
      return connectNext();
   }
   stop();
   ends_.failed( why );
}

} // namespace Database
