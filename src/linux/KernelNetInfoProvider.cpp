#include "linux/KernelNetInfoProvider.h"

#include "linux/DeviceWatcher.h"
#include "platform/gantry/Backoff.h"
#include "platform/gantry/Timer.h"

#include <cerrno>
#include <utility>

namespace Valen::Linux {

namespace {

constexpr std::string_view suffix = "/status";
constexpr auto firstPause = std::chrono::milliseconds( 10 );
constexpr auto lastPause = std::chrono::milliseconds( 5000 );

} // namespace

// A mounted namespace. Functions that write to the status keep their own handle to it, because a watcher
// of the status may unmount it.
struct KernelNetInfoProvider::Entry {
   Entry( EventLoop & loop, Corvid::NamespaceName name, EventLoop::Work retry )
       : status( Quill::make< KernelNetInfo::Status >( std::move( name ) ) ),
         pause( firstPause, lastPause ),
         retryTimer( loop.scheduler(), "namespace " + status->netNsName().stdString(),
                     std::move( retry ) ) {}

   Quill::Ptr< KernelNetInfo::Status > const status;
   std::shared_ptr< DeviceWatcher > watcher; // null while the namespace cannot be watched
   Gantry::Backoff pause;
   Gantry::Timer retryTimer;
   bool mounted = true;
};

KernelNetInfoProvider::KernelNetInfoProvider( EventLoop & loop, NetNsDirectories directories )
    : loop_( loop ), directories_( std::move( directories ) ) {}

KernelNetInfoProvider::~KernelNetInfoProvider() {
   for ( auto const & [ name, entry ] : entries_ ) {
      entry->retryTimer.stop();
   }
}

Quill::Ptr< Quill::Entity > KernelNetInfoProvider::mount( std::string_view path ) {
   auto const name = nameIn( path );
   if ( !name ) {
      return nullptr;
   }
   if ( auto const existing = status( *name ) ) {
      return existing;
   }
   auto const entry =
      std::make_shared< Entry >( loop_, *name, [ this, name = *name ] { refresh( name ); } );
   entries_[ *name ] = entry;
   watch( *entry );
   return entry->status;
}

void KernelNetInfoProvider::unmount( std::string_view path ) {
   auto const name = nameIn( path );
   auto const found = name ? entries_.find( *name ) : entries_.end();
   if ( found == entries_.end() ) {
      return;
   }
   auto const entry = found->second;
   entries_.erase( found );
   entry->mounted = false;
   entry->retryTimer.stop();
   drop( *entry, "" );
}

void KernelNetInfoProvider::refresh( Corvid::NamespaceName const & name ) {
   auto const found = entries_.find( name );
   if ( found == entries_.end() ) {
      return;
   }
   auto const entry = found->second;
   watch( *entry );
}

Quill::Ptr< KernelNetInfo::Status >
KernelNetInfoProvider::status( Corvid::NamespaceName const & name ) const noexcept {
   auto const found = entries_.find( name );
   return found == entries_.end() ? nullptr : found->second->status;
}

Quill::Ptr< KernelNetInfo::Interface >
KernelNetInfoProvider::device( Corvid::NamespaceName const & name,
                               Quill::Name const & deviceName ) const noexcept {
   auto const found = entries_.find( name );
   if ( found == entries_.end() || !found->second->watcher ) {
      return nullptr;
   }
   return found->second->status->interface( found->second->watcher->ifIndex( deviceName ) );
}

LinkState KernelNetInfoProvider::state( Corvid::NamespaceName const & name, U32 ifIndex,
                                        Quill::Name const & deviceName ) const {
   LinkId const link{ name.stdString(), deviceName.stdString(), ifIndex };
   auto const found = entries_.find( name );
   if ( found == entries_.end() || !found->second->watcher ) {
      throw Quill::ErrnoException( link.text() + " is not watched", ENODEV );
   }
   return found->second->watcher->state( link );
}

std::string KernelNetInfoProvider::path( Corvid::NamespaceName const & name ) {
   return prefix + name.stdString() + std::string( suffix );
}

std::optional< Corvid::NamespaceName > KernelNetInfoProvider::nameIn( std::string_view path ) {
   std::string_view const front( prefix );
   if ( path.size() < front.size() + suffix.size() || !path.starts_with( front ) ||
        !path.ends_with( suffix ) ) {
      return std::nullopt;
   }
   path = path.substr( front.size(), path.size() - front.size() - suffix.size() );
   if ( !NetNsDirectories::validName( path ) || path.size() > Corvid::NamespaceName::maxLength ) {
      return std::nullopt;
   }
   return Corvid::NamespaceName( path );
}

void KernelNetInfoProvider::watch( Entry & entry ) {
   Quill::Expect const expected( Quill::ExceptionId::errnoFailure );
   try {
      auto const netNs = directories_.open( entry.status->netNsName() );
      if ( entry.watcher && entry.watcher->netNsIdentity() == netNs.identity ) {
         return;
      }
      drop( entry, "" );
      if ( entry.mounted ) {
         entry.watcher = std::make_shared< DeviceWatcher >( loop_, netNs, entry.status );
         entry.retryTimer.stop();
         entry.pause.reset();
      }
   } catch ( Quill::ErrnoException const & e ) {
      // Running out of descriptors does not affect a namespace that is being watched already.
      if ( !entry.watcher || e.number() == ENOENT || e.number() == EINVAL ) {
         drop( entry, e.text() );
      }
      if ( entry.mounted ) {
         entry.retryTimer.start( entry.pause.take() );
      }
   }
}

void KernelNetInfoProvider::drop( Entry & entry, Quill::String error ) {
   if ( auto const watcher = std::exchange( entry.watcher, nullptr ) ) {
      watcher->close();
      loop_.post( [ watcher ] {} ); // it may be on the stack: destroy it at the end of the turn
   }
   entry.status->interfaceDelAll();
   entry.status->synchronizedIs( false );
   entry.status->errorIs( std::move( error ) );
}

} // namespace Valen::Linux
