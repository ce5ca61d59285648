#include "valend/api/SlowAnswer.h"

namespace Valend {

namespace {

std::string dumped( Json const & json ) {
   return json.dump( -1, ' ', false, Json::error_handler_t::replace );
}

} // namespace

SlowAnswer::Part SlowAnswer::lists( std::vector< List > lists, std::function< Json() > rest ) {
   return [ lists = std::move( lists ), rest = std::move( rest ), list = std::size_t( 0 ),
            begun = false ]( std::string & text ) mutable {
      auto const & [ name, next ] = lists.at( list );
      if ( !begun ) {
         text += ( list ? ",\"" : "{\"" ) + name + "\":[";
      }
      if ( auto const element = next() ) {
         text += ( std::exchange( begun, true ) ? "," : "" ) + dumped( *element );
         return true;
      }
      text += ']';
      begun = false;
      if ( ++list < lists.size() ) {
         return true;
      }
      auto const others = dumped( rest() );
      text += ( others == "{}" ? "" : "," ) + others.substr( 1 );
      return false;
   };
}

void SlowAnswer::to( Call const & call ) {
   bool const idle = waiting_.empty() && calls_.empty();
   waiting_.push_back( call );
   if ( idle ) {
      slices_.add( [ this ] { return step(); } );
   }
}

// Begins an answer and makes its first part, makes the next part, or answers one call. Returns whether there is more
// to do.
bool SlowAnswer::step() {
   if ( calls_.empty() ) {
      calls_ = std::exchange( waiting_, {} );
      answer_ = nullptr;
      part_ = begin_();
   }
   if ( answer_ ) {
      calls_.back()->reply( answer_ );
      calls_.pop_back();
      return !calls_.empty() || !waiting_.empty();
   }
   if ( !part_( text_ ) ) {
      answer_ = Varlink::encodedAnswer( std::exchange( text_, {} ), Varlink::Continues::no );
      part_ = nullptr;
   }
   return true;
}

} // namespace Valend
