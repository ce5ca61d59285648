#include "valend/base/TraceHub.h"

#include "platform/quill/Printable.h"

#include <algorithm>

namespace Valend {

namespace {

U64 nowNs() {
   return static_cast< U64 >( std::chrono::duration_cast< std::chrono::nanoseconds >(
                                 std::chrono::system_clock::now().time_since_epoch() )
                                 .count() );
}

} // namespace

TraceHub::TraceHub( Gantry::WorkQueue & work, Settings::ProcessConfig const & config,
                    WithoutFile withoutFile )
    : posted_( work, "trace" ) {
   Quill::traceLevelsIs( config.value( "trace.levels" ) );
   if ( auto const & file = config.given( "trace.file" ) ) {
      file_ = std::make_unique< Valen::Linux::FileTraceSink >( *file );
   } else if ( withoutFile == WithoutFile::standardError ) {
      stderr_ = std::make_unique< Valen::Linux::StderrTraceSink >();
   }
   if ( auto const & ring = config.given( "trace.ring" ) ) {
      ringFile_ = std::make_unique< Valen::Linux::RingFile >( *ring, ringBytes );
   } else {
      ringMemory_.resize( ringBytes / sizeof( U64 ) );
      memoryRing_ =
         std::make_unique< Blipline::Ring >( std::as_writable_bytes( std::span( ringMemory_ ) ) );
      Blipline::ringIs( memoryRing_.get() );
   }
   sinkUpdate();
}

TraceHub::~TraceHub() {
   Quill::traceSinkIs( nullptr );
   if ( memoryRing_ ) {
      Blipline::ringIs( nullptr );
   }
}

Blipline::Ring const & TraceHub::ring() const noexcept {
   return memoryRing_ ? *memoryRing_ : ringFile_->ring();
}

void TraceHub::reopen() {
   if ( file_ ) {
      file_->reopen();
   }
}

std::vector< TraceHub::Line > TraceHub::recent( std::size_t count ) const {
   auto const live = memoryRing_ ? std::as_bytes( std::span( ringMemory_ ) ) : ringFile_->memory();
   // The ring cannot change meanwhile: this is the thread that writes it.
   Blipline::Reader reader( live );
   std::deque< Line > lines;
   Blipline::Line line;
   while ( count && reader.next( line ) ) {
      if ( lines.size() == count ) {
         lines.pop_front();
      }
      lines.push_back( { static_cast< U64 >( reader.wallTime( line.time ).count() ),
                         std::string( line.unit ), line.level,
                         Quill::printable( line.text.view() ) } );
   }
   return { std::make_move_iterator( lines.begin() ), std::make_move_iterator( lines.end() ) };
}

void TraceHub::follow( Follower follower ) {
   tell( {} ); // removes those that want no more lines
   followers_.push_back( std::move( follower ) );
   sinkUpdate();
}

void TraceHub::tell( std::vector< Line > const & lines ) {
   std::erase_if( followers_, [ & ]( auto const & follower ) { return !follower( lines ); } );
   sinkUpdate();
}

// Without an output or a follower the texts are not formatted at all.
void TraceHub::sinkUpdate() noexcept {
   Quill::traceSinkIs( file_ || stderr_ || !followers_.empty() ? this : nullptr );
}

void TraceHub::line( Quill::TraceLine const & line ) noexcept {
   if ( file_ ) {
      file_->line( line );
   }
   if ( stderr_ ) {
      stderr_->line( line );
   }
   if ( followers_.empty() || pending_.size() >= maxPending ) {
      return;
   }
   if ( pending_.empty() ) {
      posted_.post( [ this ] { tell( std::exchange( pending_, {} ) ); } );
   }
   pending_.push_back(
      { nowNs(), line.point.unit, line.point.level, Quill::printable( line.text ) } );
}

} // namespace Valend
