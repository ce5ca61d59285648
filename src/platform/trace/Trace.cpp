#include "platform/trace/Trace.h"

#include "platform/trace/Blipline.h"

#include <utility>

namespace Quill {

namespace {

TraceSink * sink = nullptr;
TraceHandle * handles = nullptr;

// Never destroyed: handles with static storage read it whenever they are made.
TraceLevels & activeLevels() {
   static auto & levels = *new TraceLevels;
   return levels;
}

} // namespace

TraceSink * traceSinkIs( TraceSink * newSink ) noexcept {
   return std::exchange( sink, newSink );
}

TraceHandle::TraceHandle( char const * name, U8 /* level */ )
    : name_( name ), levels_( activeLevels().maskOf( name ) ),
      next_( std::exchange( handles, this ) ) {}

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

void traceLevelsIs( TraceLevels levels ) {
   activeLevels() = std::move( levels );
   for ( auto * handle = handles; handle; handle = handle->next() ) {
      handle->levelsIs( activeLevels().maskOf( handle->name() ) );
   }
}

std::string traceLevels() {
   return activeLevels().text();
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
