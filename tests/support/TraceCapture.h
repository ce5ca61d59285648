// Captures the framework trace while it lives, all handles and levels on.
#pragma once

#include "platform/trace/Trace.h"

#include <algorithm>
#include <string>
#include <vector>

namespace Valen::Test {

class TraceCapture final : public Quill::TraceSink {
 public:
   struct Line {
      std::string unit;
      U8 level;
      std::string text;
   };

   TraceCapture() : oldSink_( Quill::traceSinkIs( this ) ), oldLevels_( Quill::traceLevels() ) {
      Quill::traceLevelsIs( "*/0-9" );
   }
   ~TraceCapture() override {
      Quill::traceLevelsIs( oldLevels_ );
      Quill::traceSinkIs( oldSink_ );
   }
   TraceCapture( TraceCapture const & ) = delete;
   TraceCapture & operator=( TraceCapture const & ) = delete;

   void line( Quill::TraceLine const & line ) noexcept override {
      lines_.push_back( { line.point.unit, line.point.level, std::string( line.text ) } );
   }

   std::vector< Line > const & lines() const { return lines_; }
   void clear() { lines_.clear(); }

   // The captured texts, of all levels or of one, in order.
   std::vector< std::string > texts() const {
      return select( []( Line const & ) { return true; } );
   }
   std::vector< std::string > texts( U8 level ) const {
      return select( [ level ]( Line const & line ) { return line.level == level; } );
   }
   // The texts whose function is `signature`, without it and the ": " behind it.
   std::vector< std::string > messages( std::string const & signature ) const {
      std::vector< std::string > found;
      for ( auto const & line : lines_ ) {
         if ( line.text.starts_with( signature + ": " ) ) {
            found.push_back( line.text.substr( signature.size() + 2 ) );
         }
      }
      return found;
   }
   std::size_t count( std::string const & text ) const {
      return static_cast< std::size_t >( std::count_if(
         lines_.begin(), lines_.end(), [ & ]( Line const & line ) { return line.text == text; } ) );
   }
   bool has( std::string const & text ) const { return count( text ) > 0; }

 private:
   template < class Wanted > std::vector< std::string > select( Wanted const & wanted ) const {
      std::vector< std::string > found;
      for ( auto const & line : lines_ ) {
         if ( wanted( line ) ) {
            found.push_back( line.text );
         }
      }
      return found;
   }

   Quill::TraceSink * const oldSink_;
   std::string const oldLevels_;
   std::vector< Line > lines_;
};

} // namespace Valen::Test
