#include "valend/api/TraceMethods.h"

namespace Valend {

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
   trace_.follow( [ this, call ]( auto const & more ) {
      if ( !more.empty() ) {
         call->replyContinues( answer( more ) );
      }
      return call->open();
   } );
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
