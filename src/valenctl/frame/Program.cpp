#include "valenctl/frame/Program.h"

#include "linux/Fd.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Valenctl {

namespace {

using Clock = std::chrono::steady_clock;
using Valen::Linux::Fd;

// What the program prints to one descriptor.
class Pipe {
 public:
   Pipe() {
      int ends[ 2 ];
      if ( ::pipe2( ends, O_CLOEXEC ) < 0 ) {
         throw std::runtime_error( "pipe2: " + Valen::Linux::errorText( errno ) );
      }
      reading_ = Fd( ends[ 0 ] );
      writing_ = Fd( ends[ 1 ] );
      ::fcntl( reading_.get(), F_SETFL, O_NONBLOCK );
   }

   int writing() const noexcept { return writing_.get(); }
   void closeWriting() noexcept { writing_.close(); }

   // To poll for more; not valid, and so never ready, after the end.
   int reading() const noexcept { return reading_.get(); }
   // Reads what is there.
   void read() {
      char chunk[ 4096 ];
      ssize_t count = 0;
      while ( reading_ && ( count = ::read( reading_.get(), chunk, sizeof chunk ) ) > 0 ) {
         text_.append( chunk, static_cast< std::size_t >( count ) );
      }
      if ( count == 0 ) {
         reading_.close();
      }
   }
   std::string const & text() const noexcept { return text_; }

 private:
   Fd reading_;
   Fd writing_;
   std::string text_;
};

// Which descriptors of the program are which files.
class FileActions {
 public:
   FileActions( int out, int err ) {
      ::posix_spawn_file_actions_init( &actions_ );
      ::posix_spawn_file_actions_addopen( &actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0 );
      ::posix_spawn_file_actions_adddup2( &actions_, out, STDOUT_FILENO );
      ::posix_spawn_file_actions_adddup2( &actions_, err, STDERR_FILENO );
   }
   ~FileActions() { ::posix_spawn_file_actions_destroy( &actions_ ); }
   FileActions( FileActions const & ) = delete;
   FileActions & operator=( FileActions const & ) = delete;

   posix_spawn_file_actions_t const * get() const noexcept { return &actions_; }

 private:
   posix_spawn_file_actions_t actions_;
};

pid_t spawned( std::vector< std::string > const & arguments, FileActions const & actions ) {
   std::vector< char * > argv;
   for ( auto const & argument : arguments ) {
      argv.push_back( const_cast< char * >( argument.c_str() ) );
   }
   argv.push_back( nullptr );
   pid_t pid = -1;
   auto error = ENOENT;
   for ( auto const & path : { arguments.front(), "/usr/sbin/" + arguments.front() } ) {
      if ( error == ENOENT ) {
         error = ::posix_spawnp( &pid, path.c_str(), actions.get(), nullptr, argv.data(), environ );
      }
   }
   if ( error == ENOENT ) {
      throw std::runtime_error( arguments.front() + " is not installed" );
   }
   if ( error ) {
      throw std::runtime_error( "cannot run " + arguments.front() + ": " +
                                Valen::Linux::errorText( error ) );
   }
   return pid;
}

// Ends the process, if it still runs, and takes its status.
class Child {
 public:
   explicit Child( pid_t pid )
       : pid_( pid ), ended_( static_cast< int >( ::syscall( SYS_pidfd_open, pid, 0 ) ) ) {}
   ~Child() {
      if ( pid_ > 0 ) {
         ::kill( pid_, SIGKILL );
         status();
      }
   }
   Child( Child const & ) = delete;
   Child & operator=( Child const & ) = delete;

   // Readable once it has ended.
   int ended() const noexcept { return ended_.get(); }
   int status() {
      int status = 0;
      while ( ::waitpid( pid_, &status, 0 ) < 0 && errno == EINTR ) {
      }
      pid_ = -1;
      constexpr int bySignal = 128;
      return WIFEXITED( status ) ? WEXITSTATUS( status ) : bySignal + WTERMSIG( status );
   }

 private:
   pid_t pid_;
   Fd const ended_;
};

} // namespace

ProgramOutput outputOf( std::vector< std::string > const & arguments,
                        std::chrono::milliseconds timeout ) {
   auto const end = Clock::now() + timeout;
   Pipe out;
   Pipe err;
   Child child( spawned( arguments, FileActions( out.writing(), err.writing() ) ) );
   out.closeWriting();
   err.closeWriting();
   for ( bool ended = false; !ended; ) {
      auto const left = std::chrono::ceil< std::chrono::milliseconds >( end - Clock::now() );
      pollfd ready[] = {
         { out.reading(), POLLIN, 0 }, { err.reading(), POLLIN, 0 }, { child.ended(), POLLIN, 0 } };
      if ( ::poll( ready, std::size( ready ),
                   static_cast< int >( std::max( left.count(), std::int64_t( 0 ) ) ) ) == 0 ) {
         throw std::runtime_error( arguments.front() + " did not end within " +
                                   std::to_string( timeout.count() ) + " ms" );
      }
      ended = ready[ 2 ].revents; // first, so that all that it printed is read after it
      out.read();
      err.read();
   }
   return { child.status(), out.text(), err.text() };
}

} // namespace Valenctl
