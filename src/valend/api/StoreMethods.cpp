#include "valend/api/StoreMethods.h"

namespace Valend {

StoreMethods::StoreMethods( Parts const & parts )
    : parts_( parts ), texts_( parts.scheduler, parts.work ),
      unused_( parts.scheduler, "store readers", [ this ] { dropUnused(); } ) {}

std::vector< Method > StoreMethods::methods() {
   using Self = StoreMethods;
   return {
      method( "Show", Right::read, *this, &Self::show ),
      method( "Watch", Right::read, *this, &Self::watch, Replies::stream ),
   };
}

void StoreMethods::show( Call const & call, std::string const & path ) {
   requirePath( path );
   readers( path ).show( call );
}

void StoreMethods::watch( Call const & call, std::string const & path ) {
   requirePath( path );
   lasts( *call );
   readers( path ).watch( call );
}

void StoreMethods::clientGone( U64 client ) {
   for ( auto & [ path, readers ] : readers_ ) {
      readers.clientGone( client );
   }
   std::erase_if( readers_, []( auto const & entry ) { return entry.second.empty(); } );
}

void StoreMethods::requirePath( std::string const & path ) const {
   StoreVisits visits;
   if ( !placeAt( *parts_.store.entityManager, path, visits ) ) {
      throw Errors::noSuchPath( path );
   }
}

PathReaders & StoreMethods::readers( std::string const & path ) {
   if ( !unused_.running() ) {
      unused_.start( keptFor );
   }
   std::string_view name( path );
   while ( name.starts_with( '/' ) ) {
      name.remove_prefix( 1 );
   }
   while ( name.ends_with( '/' ) ) {
      name.remove_suffix( 1 );
   }
   std::string key( name );
   return readers_.try_emplace( key, parts_, texts_, key ).first->second;
}

void StoreMethods::dropUnused() {
   std::erase_if( readers_, []( auto const & entry ) { return entry.second.empty(); } );
}

} // namespace Valend
