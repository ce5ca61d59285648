#include "linux/NetNsWatcher.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace Valen::Linux {

namespace {

constexpr U32 directoryEvents =
   IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

// Usually, the namespace is mounted within a millisecond after the file was created.
constexpr auto firstPause = std::chrono::milliseconds( 2 );
constexpr auto lastPause = std::chrono::milliseconds( 2000 );

constexpr auto mountsPause = std::chrono::milliseconds( 200 );

std::string parentOf( std::string const & path ) {
   auto const slash = path.find_last_of( '/' );
   return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr( 0, slash );
}

// The name of the namespace that a file may be; nothing for other files.
std::optional< Corvid::NamespaceName > nameOf( std::string_view file ) {
   if ( !NetNsDirectories::validName( file ) || file.size() > Corvid::NamespaceName::maxLength ) {
      return std::nullopt;
   }
   Corvid::NamespaceName name( file );
   if ( name == Corvid::NamespaceName::defaultNamespace() ) {
      return std::nullopt; // never looked up in a directory
   }
   return name;
}

} // namespace

NetNsWatcher::NetNsWatcher( EventLoop & loop, NetNsDirectories directories, Changed changed )
    : loop_( loop ), netNsDirectories_( std::move( directories ) ),
      changed_( std::move( changed ) ),
      inotify_( requireFd( ::inotify_init1( IN_CLOEXEC | IN_NONBLOCK ), "inotify_init1" ) ),
      pause_( firstPause, lastPause ),
      timer_( loop.scheduler(), "namespace retry", [ this ] { retry(); } ),
      mounts_( ::open( "/proc/self/mountinfo", O_RDONLY | O_CLOEXEC | O_NONBLOCK ) ),
      mountsTimer_( loop.scheduler(), "mounts", [ this ] { rescan(); } ) {
   for ( auto const & path : netNsDirectories_.directories() ) {
      directories_.push_back( { path, "", -1 } );
   }
   directoriesChanged();
   for ( auto const & name : namesInDirectories() ) {
      if ( auto const identity = netNsDirectories_.identity( name ) ) {
         known_[ name ] = *identity;
      } else {
         retryLater( name );
      }
   }
   loop_.descriptorIs( inotify_.get(), EPOLLIN, "namespaces", [ this ]( U32 ) { eventsReady(); } );
   if ( mounts_ ) {
      loop_.descriptorIs( mounts_.get(), EPOLLPRI, "mounts", [ this ]( U32 ) { mountsChanged(); } );
   }
}

NetNsWatcher::~NetNsWatcher() {
   loop_.descriptorDel( inotify_.get() );
   loop_.descriptorDel( mounts_.get() );
}

void NetNsWatcher::rescan() {
   directoriesChanged();
   auto names = namesInDirectories();
   for ( auto const & [ name, identity ] : known_ ) {
      names.insert( name );
   }
   for ( auto const & name : names ) {
      check( name );
   }
}

// --- Directories ---------------------------------------------------------------------------------

// Watches the directory, or its nearest existing parent. The directory could be created between the
// attempt and the watch of the parent, so it is tried again once the parent is watched.
void NetNsWatcher::watchDirectory( Directory & directory ) {
   auto path = directory.path;
   for ( ;; ) {
      auto const watch = ::inotify_add_watch( inotify_.get(), path.c_str(), directoryEvents );
      if ( watch < 0 && ( path == "/" || path == "." ) ) {
         throwErrno( "cannot watch " + path, errno );
      }
      if ( watch < 0 ) {
         path = parentOf( path );
         continue;
      }
      bool const knownParent = watch == directory.watch;
      directoryWatchIs( directory, path, watch );
      if ( knownParent || path == directory.path ) {
         return;
      }
      path = directory.path;
   }
}

void NetNsWatcher::directoryWatchIs( Directory & directory, std::string const & path, int watch ) {
   auto const old = std::exchange( directory.watch, watch );
   directory.watched = path;
   bool const inUse =
      std::any_of( directories_.begin(), directories_.end(),
                   [ old ]( Directory const & other ) { return other.watch == old; } );
   if ( old >= 0 && !inUse ) {
      ::inotify_rm_watch( inotify_.get(), old ); // fails if the directory is gone, which is fine
   }
}

void NetNsWatcher::directoriesChanged() {
   for ( auto & directory : directories_ ) {
      watchDirectory( directory );
   }
}

std::set< Corvid::NamespaceName > NetNsWatcher::namesInDirectories() const {
   std::set< Corvid::NamespaceName > names;
   for ( auto const & directory : directories_ ) {
      std::unique_ptr< DIR, int ( * )( DIR * ) > const stream( ::opendir( directory.path.c_str() ),
                                                               &::closedir );
      while ( auto const * const entry = stream ? ::readdir( stream.get() ) : nullptr ) {
         if ( auto const name = nameOf( entry->d_name ) ) {
            names.insert( *name );
         }
      }
   }
   return names;
}

// --- Events --------------------------------------------------------------------------------------

void NetNsWatcher::eventsReady() {
   alignas( inotify_event ) std::array< char, 16384 > buffer;
   bool directoriesMoved = false;
   for ( ;; ) {
      auto const length = ::read( inotify_.get(), buffer.data(), buffer.size() );
      if ( length <= 0 ) {
         break;
      }
      directoriesMoved |= handleEvents( buffer.data(), static_cast< std::size_t >( length ) );
   }
   if ( directoriesMoved ) {
      rescan();
   }
}

// Returns whether a directory may have been created or deleted, or events were lost.
bool NetNsWatcher::handleEvents( char const * bytes, std::size_t length ) {
   bool directoriesMoved = false;
   for ( std::size_t at = 0; at + sizeof( inotify_event ) <= length; ) {
      inotify_event event;
      std::memcpy( &event, bytes + at, sizeof event );
      auto const * const file = bytes + at + sizeof event; // padded with zeros
      at += sizeof event + event.len;
      auto const inDirectory =
         std::any_of( directories_.begin(), directories_.end(),
                      [ wd = event.wd ]( Directory const & directory ) {
                         return directory.watch == wd && directory.watched == directory.path;
                      } );
      bool const ofItself =
         event.mask & ( IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED | IN_UNMOUNT | IN_Q_OVERFLOW );
      if ( !inDirectory || ofItself ) {
         directoriesMoved = true;
      } else if ( auto const name = event.len ? nameOf( file ) : std::nullopt ) {
         check( *name );
      }
   }
   return directoriesMoved;
}

// Many mounts at a time lead to one scan.
void NetNsWatcher::mountsChanged() {
   if ( !mountsTimer_.running() ) {
      mountsTimer_.start( mountsPause );
   }
}

// --- Namespaces ----------------------------------------------------------------------------------

void NetNsWatcher::check( Corvid::NamespaceName const & name ) {
   std::optional< NetNsIdentity > identity;
   try {
      Quill::Expect const expected( Quill::ExceptionId::errnoFailure );
      identity = netNsDirectories_.open( name ).identity;
   } catch ( Quill::ErrnoException const & e ) {
      if ( e.number() != ENOENT && e.number() != EINVAL ) {
         return retryLater( name ); // out of descriptors: the namespace may exist
      }
   }
   if ( !identity && fileExists( name ) ) {
      retryLater( name );
   } else {
      unfinished_.erase( name );
   }
   identityIs( name, identity );
}

void NetNsWatcher::identityIs( Corvid::NamespaceName const & name,
                               std::optional< NetNsIdentity > const & identity ) {
   auto const known = known_.find( name );
   if ( known == known_.end() ) {
      if ( identity ) {
         known_[ name ] = *identity;
         report( name, Change::appeared );
      }
   } else if ( !identity ) {
      known_.erase( known );
      report( name, Change::gone );
   } else if ( known->second != *identity ) {
      known->second = *identity;
      report( name, Change::replaced );
   }
}

void NetNsWatcher::retryLater( Corvid::NamespaceName const & name ) {
   if ( unfinished_.insert( name ).second ) {
      pause_.reset();
      timer_.start( pause_.take() );
   }
}

void NetNsWatcher::retry() {
   auto const names = unfinished_;
   for ( auto const & name : names ) {
      check( name );
   }
   if ( !unfinished_.empty() && !timer_.running() ) {
      timer_.start( pause_.take() );
   }
}

bool NetNsWatcher::fileExists( Corvid::NamespaceName const & name ) const noexcept {
   return std::any_of(
      directories_.begin(), directories_.end(), [ & ]( Directory const & directory ) {
         struct stat status;
         return ::stat( ( directory.path + "/" + name.stdString() ).c_str(), &status ) == 0;
      } );
}

void NetNsWatcher::report( Corvid::NamespaceName const & name, Change change ) {
   auto const copy = name; // the caller's may be a key that was removed
   changed_( copy, change );
}

} // namespace Valen::Linux
