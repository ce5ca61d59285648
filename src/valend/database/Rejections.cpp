#include "valend/database/Rejections.h"

#include "database/Keys.h"

#include <chrono>

namespace Valend {

void Rejections::outboxIs( Database::Outbox * outbox ) {
   outbox_ = outbox;
   for ( auto const & [ key, rejection ] : rejections_ ) {
      put( key, rejection );
   }
}

void Rejections::unreadableIs( std::string const & key, std::string const & why ) {
   if ( !why.empty() || rejections_.contains( key ) ) {
      rejections_[ key ].unreadable = why;
      update( key );
   }
}

void Rejections::rejectedIs( std::string const & key, std::string const & why ) {
   if ( !why.empty() || rejections_.contains( key ) ) {
      rejections_[ key ].rejected = why;
      update( key );
   }
}

void Rejections::update( std::string const & key ) {
   using namespace std::chrono;
   auto & rejection = rejections_.at( key );
   auto const & why = rejection.unreadable.empty() ? rejection.rejected : rejection.unreadable;
   if ( std::exchange( rejection.why, why ) != why ) {
      auto const now = duration_cast< milliseconds >( system_clock::now().time_since_epoch() );
      rejection.atMs = std::to_string( now.count() );
      put( key, rejection );
   }
   if ( rejection.why.empty() ) {
      rejections_.erase( key );
   }
}

void Rejections::put( std::string const & key, Rejection const & rejection ) const {
   if ( outbox_ ) {
      auto const name = Database::nameOf( { Database::Kind::rejected, key } );
      rejection.why.empty()
         ? outbox_->hashDel( name )
         : outbox_->hashIs( name, { { "why", rejection.why }, { "at-ms", rejection.atMs } } );
   }
}

} // namespace Valend
