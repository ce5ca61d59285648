#include "platform/trace/Trace.h"

#include "platform/quill/Exception.h"
#include "platform/trace/Blipline.h"

#include <utility>
#include <vector>

namespace Quill {

namespace {

// One pattern: a name, in which a final '*' stands for any ending, and a mask of levels.
struct LevelPattern {
   std::string name;
   U32 mask;

   bool matches( std::string_view handleName ) const noexcept {
      if ( name.ends_with( '*' ) ) {
         return handleName.starts_with( std::string_view( name ).substr( 0, name.size() - 1 ) );
      }
      return handleName == name;
   }
};

TraceSink * sink = nullptr;
TraceHandle * handles = nullptr;

// Never destroyed: handles with static storage read it whenever they are made.
std::vector< LevelPattern > & patternsInForce() {
   static auto & patterns = *new std::vector< LevelPattern >;
   return patterns;
}

std::string & patternText() {
   static auto & text = *new std::string;
   return text;
}

[[noreturn]] void badPattern( std::string_view pattern ) {
   throw RangeException( "trace pattern \"" + std::string( pattern ) +
                         "\" is not NAME/LEVEL or NAME/FIRST-LAST with levels 0 to 9" );
}

U32 levelDigit( std::string_view pattern, char digit ) {
   if ( digit < '0' || digit > '9' ) {
      badPattern( pattern );
   }
   return static_cast< U32 >( digit - '0' );
}

LevelPattern parsePattern( std::string_view pattern ) {
   auto const slash = pattern.rfind( '/' );
   if ( slash == std::string_view::npos || slash == 0 ) {
      badPattern( pattern );
   }
   auto const range = pattern.substr( slash + 1 );
   bool const isRange = range.size() == 3 && range[ 1 ] == '-';
   if ( !isRange && range.size() != 1 ) {
      badPattern( pattern );
   }
   auto const first = levelDigit( pattern, range.front() );
   auto const last = levelDigit( pattern, range.back() );
   if ( first > last ) {
      badPattern( pattern );
   }
   return { std::string( pattern.substr( 0, slash ) ), ( 2u << last ) - ( 1u << first ) };
}

std::vector< LevelPattern > parsePatterns( std::string_view text ) {
   std::vector< LevelPattern > patterns;
   while ( !text.empty() ) {
      auto const comma = std::min( text.find( ',' ), text.size() );
      patterns.push_back( parsePattern( text.substr( 0, comma ) ) );
      text.remove_prefix( std::min( comma + 1, text.size() ) );
   }
   return patterns;
}

U32 levelsOf( std::string_view handleName ) noexcept {
   U32 mask = 0;
   for ( auto const & pattern : patternsInForce() ) {
      if ( pattern.matches( handleName ) ) {
         mask = pattern.mask;
      }
   }
   return mask;
}

} // namespace

TraceSink * traceSinkIs( TraceSink * newSink ) noexcept {
   return std::exchange( sink, newSink );
}

TraceHandle::TraceHandle( char const * name, U8 /* level */ )
    : name_( name ), levels_( levelsOf( name ) ), next_( std::exchange( handles, this ) ) {}

TraceHandle::~TraceHandle() {
   auto ** link = &handles;
   while ( *link != this ) {
      link = &( *link )->next_;
   }
   *link = next_;
}

TraceHandle * TraceHandle::first() noexcept {
   return handles;
}

void traceLevelsIs( std::string_view text ) {
   patternsInForce() = parsePatterns( text );
   patternText() = text;
   for ( auto * handle = handles; handle; handle = handle->next() ) {
      handle->levelsIs( levelsOf( handle->name() ) );
   }
}

std::string traceLevels() {
   return patternText();
}

void traceWrite( TracePoint & point, std::span< Twinlog::Value const > values ) noexcept {
   auto * const ring = Blipline::ring();
   if ( !sink && !ring ) {
      return;
   }
   auto const time = std::chrono::duration_cast< std::chrono::nanoseconds >(
      std::chrono::steady_clock::now().time_since_epoch() );
   if ( ring ) {
      ring->write( point, time, values );
   }
   if ( sink ) {
      Twinlog::Text text;
      Twinlog::formatLine( text, point.signature, point.format, values );
      sink->line( { point, time, text.view() } );
   }
}

} // namespace Quill
