#include "linux/NetNsWatcher.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <sys/epoll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace Valen::Linux {

namespace {

constexpr U32 folderEvents =
   IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

// A namespace is mounted within a millisecond of its file's making, when nothing is wrong.
constexpr auto firstPause = std::chrono::milliseconds( 2 );
constexpr auto lastPause = std::chrono::milliseconds( 2000 );

std::string parentOf( std::string const & path ) {
   auto const slash = path.find_last_of( '/' );
   return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr( 0, slash );
}

// The name of a namespace that a file may stand for; nothing for other files.
std::optional< Corvid::NamespaceName > nameOf( std::string_view file ) {
   if ( !NetNsFolders::validName( file ) || file.size() > Corvid::NamespaceName::maxLength ) {
      return std::nullopt;
   }
   Corvid::NamespaceName name( file );
   if ( name == Corvid::NamespaceName::defaultNamespace() ) {
      return std::nullopt; // never looked up in a folder
   }
   return name;
}

} // namespace

NetNsWatcher::NetNsWatcher( EventLoop & loop, NetNsFolders folders, Changed changed )
    : loop_( loop ), netNsFolders_( std::move( folders ) ), changed_( std::move( changed ) ),
      inotify_( requireFd( ::inotify_init1( IN_CLOEXEC | IN_NONBLOCK ), "inotify_init1" ) ),
      pause_( firstPause, lastPause ),
      timer_( loop.scheduler(), "namespace retry", [ this ] { retry(); } ) {
   for ( auto const & path : netNsFolders_.folders() ) {
      folders_.push_back( { path, "", -1 } );
   }
   foldersChanged();
   for ( auto const & name : namesInFolders() ) {
      if ( auto const identity = netNsFolders_.identity( name ) ) {
         known_[ name ] = *identity;
      } else {
         retryLater( name );
      }
   }
   loop_.descriptorIs( inotify_.get(), EPOLLIN, "namespaces", [ this ]( U32 ) { eventsReady(); } );
}

NetNsWatcher::~NetNsWatcher() {
   loop_.descriptorDel( inotify_.get() );
}

void NetNsWatcher::rescan() {
   foldersChanged();
   auto names = namesInFolders();
   for ( auto const & [ name, identity ] : known_ ) {
      names.insert( name );
   }
   for ( auto const & name : names ) {
      check( name );
   }
}

// --- The folders ---------------------------------------------------------------------------------

// Watches the folder, or the nearest parent that exists. What is made between the attempt and the
// watch of the parent would be missed, so the folder is tried again once the parent is watched.
void NetNsWatcher::watchFolder( Folder & folder ) {
   auto path = folder.path;
   for ( ;; ) {
      auto const watch = ::inotify_add_watch( inotify_.get(), path.c_str(), folderEvents );
      if ( watch < 0 && ( path == "/" || path == "." ) ) {
         throwErrno( "inotify_add_watch on " + path, errno );
      }
      if ( watch < 0 ) {
         path = parentOf( path );
         continue;
      }
      bool const knownParent = watch == folder.watch;
      folderWatchIs( folder, path, watch );
      if ( knownParent || path == folder.path ) {
         return;
      }
      path = folder.path;
   }
}

void NetNsWatcher::folderWatchIs( Folder & folder, std::string const & path, int watch ) {
   auto const old = std::exchange( folder.watch, watch );
   folder.watched = path;
   bool const inUse = std::any_of( folders_.begin(), folders_.end(),
                                   [ old ]( Folder const & other ) { return other.watch == old; } );
   if ( old >= 0 && !inUse ) {
      ::inotify_rm_watch( inotify_.get(), old ); // fails when its folder is gone, which is as well
   }
}

void NetNsWatcher::foldersChanged() {
   for ( auto & folder : folders_ ) {
      watchFolder( folder );
   }
}

std::set< Corvid::NamespaceName > NetNsWatcher::namesInFolders() const {
   std::set< Corvid::NamespaceName > names;
   for ( auto const & folder : folders_ ) {
      std::unique_ptr< DIR, int ( * )( DIR * ) > const directory( ::opendir( folder.path.c_str() ),
                                                                  &::closedir );
      while ( auto const * const entry = directory ? ::readdir( directory.get() ) : nullptr ) {
         if ( auto const name = nameOf( entry->d_name ) ) {
            names.insert( *name );
         }
      }
   }
   return names;
}

// --- The events ----------------------------------------------------------------------------------

void NetNsWatcher::eventsReady() {
   alignas( inotify_event ) std::array< char, 16384 > buffer;
   bool foldersMoved = false;
   for ( ;; ) {
      auto const length = ::read( inotify_.get(), buffer.data(), buffer.size() );
      if ( length <= 0 ) {
         break;
      }
      foldersMoved |= handleEvents( buffer.data(), static_cast< std::size_t >( length ) );
   }
   if ( foldersMoved ) {
      rescan();
   }
}

// Returns whether a folder may have come or gone, or events were lost.
bool NetNsWatcher::handleEvents( char const * bytes, std::size_t length ) {
   bool foldersMoved = false;
   for ( std::size_t at = 0; at + sizeof( inotify_event ) <= length; ) {
      inotify_event event;
      std::memcpy( &event, bytes + at, sizeof event );
      auto const * const file = bytes + at + sizeof event; // padded with zeros
      at += sizeof event + event.len;
      auto const inFolder =
         std::any_of( folders_.begin(), folders_.end(), [ wd = event.wd ]( Folder const & folder ) {
            return folder.watch == wd && folder.watched == folder.path;
         } );
      bool const ofItself =
         event.mask & ( IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED | IN_UNMOUNT | IN_Q_OVERFLOW );
      if ( !inFolder || ofItself ) {
         foldersMoved = true;
      } else if ( auto const name = event.len ? nameOf( file ) : std::nullopt ) {
         check( *name );
      }
   }
   return foldersMoved;
}

// --- The namespaces ------------------------------------------------------------------------------

void NetNsWatcher::check( Corvid::NamespaceName const & name ) {
   std::optional< NetNsIdentity > identity;
   try {
      Quill::Expect const expected( Quill::ExceptionId::errnoFailure );
      identity = netNsFolders_.open( name ).identity;
   } catch ( Quill::ErrnoException const & e ) {
      if ( e.number() != ENOENT && e.number() != EINVAL ) {
         return retryLater( name ); // want of descriptors says nothing of the namespace
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
         tell( name, Change::appeared );
      }
   } else if ( !identity ) {
      known_.erase( known );
      tell( name, Change::gone );
   } else if ( known->second != *identity ) {
      known->second = *identity;
      tell( name, Change::replaced );
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
   return std::any_of( folders_.begin(), folders_.end(), [ & ]( Folder const & folder ) {
      struct stat status;
      return ::stat( ( folder.path + "/" + name.stdString() ).c_str(), &status ) == 0;
   } );
}

void NetNsWatcher::tell( Corvid::NamespaceName const & name, Change change ) {
   auto const copy = name; // the caller's may be the key that went
   changed_( copy, change );
}

} // namespace Valen::Linux
