#include "database/Leases.h"

namespace Database {

Leases::Leases( Valen::Linux::EventLoop & loop, Connection & connection, Tell tell )
    : connection_( connection ), tell_( std::move( tell ) ),
      period_( loop.scheduler(), "database leases", [ this ] { begin(); } ) {}

void Leases::wantedIs( std::string const & key, bool wanted ) {
   if ( !wanted ) {
      keys_.erase( key );
   } else if ( keys_.try_emplace( key ).second && connection_.canTake() ) {
      ask( key );
   }
}

void Leases::begin() {
   period_.start( period );
   if ( !round_ ) {
      last_.clear();
      round_ = true;
   }
   proceed();
}

// Asks for as many as the connection takes.
void Leases::proceed() {
   while ( round_ && connection_.canTake() ) {
      auto const next = keys_.upper_bound( last_ );
      if ( next == keys_.end() ) {
         round_ = false;
         return;
      }
      last_ = next->first;
      ask( last_ );
   }
}

void Leases::ask( std::string const & key ) {
   connection_.command( { "EXISTS", key }, [ this, key ]( Reply const & reply ) {
      auto const found = keys_.find( key );
      if ( found == keys_.end() || reply.type != Reply::Type::number ) {
         return;
      }
      bool const exists = reply.number > 0;
      if ( std::exchange( found->second, exists ) != exists ) {
         tell_( key, exists );
      }
   } );
}

} // namespace Database
