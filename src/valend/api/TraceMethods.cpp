#include "valend/api/TraceMethods.h"

#include <algorithm>

namespace Valend {

TraceMethods::TraceMethods( Parts const & parts )
    : trace_( parts.trace ), access_( parts.access ),
      rest_( parts.scheduler, "trace followers", [ this ] { tell(); } ) {}

std::vector< Method > TraceMethods::methods() {
   using Self = TraceMethods;
   return {
      method( "Trace", Right::read, *this, &Self::trace ),
      method( "TraceLevels", Right::read, *this, &Self::traceLevels ),
   };
}

Json TraceMethods::answer( std::vector< TraceHub::Line > const & lines ) const {
   auto list = Json::array();
   for ( auto const & line : lines ) {
      list.push_back( { { "timeNs", line.timeNs },
                        { "unit", line.unit },
                        { "level", line.level },
                        { "text", line.text } } );
   }
   return { { "lines", std::move( list ) }, { "lost", trace_.lost() } };
}

void TraceMethods::trace( Call const & call, std::optional< U64 > lines ) {
   auto recent = answer( trace_.recent( std::min( lines.value_or( 100 ), maxLines ) ) );
   if ( !call->more() ) {
      return call->reply( std::move( recent ) );
   }
   lasts( *call );
   call->replyContinues( std::move( recent ) );
   follow( call );
}

void TraceMethods::follow( Call const & call ) {
   tell(); // what waits is among the lines that the new one has
   followers_.push_back( call );
   if ( !std::exchange( following_, true ) ) {
      trace_.follow( [ this ]( auto const & lines ) { return traced( lines ); } );
   }
}

void TraceMethods::clientGone( U64 client ) {
   std::erase_if( followers_, [ & ]( auto const & call ) { return call->client() == client; } );
}

// Notes the lines, and tells of them unless that was done just now. Returns whether more are wanted.
bool TraceMethods::traced( std::vector< TraceHub::Line > const & lines ) {
   pending_.insert( pending_.end(), lines.begin(), lines.end() );
   if ( !rest_.running() || pending_.size() >= maxLines ) {
      tell();
   }
   following_ = !followers_.empty();
   return following_;
}

// One answer for all of them, so that each line is encoded once, and few answers are sent.
void TraceMethods::tell() {
   std::erase_if( followers_, []( auto const & call ) { return !call->open(); } );
   if ( pending_.empty() ) {
      return;
   }
   auto const lines = std::exchange( pending_, {} );
   if ( followers_.empty() ) {
      return;
   }
   auto const encoded = Varlink::encodedAnswer(
      answer( lines ).dump( -1, ' ', false, Json::error_handler_t::replace ),
      Varlink::Continues::yes );
   for ( auto const & call : followers_ ) {
      call->replyContinues( encoded );
   }
   rest_.start( period );
}

void TraceMethods::traceLevels( Call const & call, std::optional< std::string > const & levels ) {
   if ( levels ) {
      access_.require( Right::change, call->caller(), "setting TraceLevels" );
      try {
         Quill::traceLevelsIs( *levels );
      } catch ( Quill::RangeException const & e ) {
         throw Errors::badTraceLevels( e.what() );
      }
   }
   call->reply( { { "levels", Quill::traceLevels() } } );
}

} // namespace Valend
