#include "database/Scan.h"

#include "database/Keys.h"

#include <algorithm>

namespace Database {

std::string globOf( std::string_view text ) {
   std::string pattern;
   for ( auto const c : text ) {
      if ( std::string_view( "*?[]\\^" ).find( c ) != std::string_view::npos ) {
         pattern += '\\';
      }
      pattern += c;
   }
   return pattern;
}

Scan::Scan( Connection & connection, std::string prefix, std::vector< std::string > names,
            Events events )
    : connection_( connection ), prefix_( std::move( prefix ) ),
      pattern_( globOf( prefix_ ) + ":*" ), names_( std::move( names ) ),
      events_( std::move( events ) ) {}

void Scan::start() {
   ++run_;
   cursor_ = "0";
   asked_ = done_ = false;
   next();
}

void Scan::next() {
   if ( done_ || std::exchange( asked_, true ) ) {
      return;
   }
   connection_.command( { "SCAN", cursor_, "MATCH", pattern_, "COUNT", "500" },
                        [ this, run = run_ ]( Reply const & reply ) {
                           if ( run == run_ ) {
                              asked_ = false;
                              read( reply );
                           }
                        } );
}

void Scan::read( Reply const & reply ) {
   if ( reply.lost() ) {
      return;
   }
   if ( reply.items.size() != 2 || reply.items[ 0 ].text.empty() ) {
      return events_.failed( "SCAN: " + ( reply.failed() ? reply.text : "an unexpected reply" ) );
   }
   cursor_ = reply.items[ 0 ].text;
   done_ = cursor_ == "0";
   for ( auto const & key : reply.items[ 1 ].items ) {
      auto const name = withoutPrefix( prefix_, key.text );
      if ( name && std::any_of( names_.begin(), names_.end(), [ & ]( auto const & start ) {
              return name->starts_with( start );
           } ) ) {
         events_.found( std::string( *name ) );
      }
   }
   events_.part();
}

} // namespace Database
