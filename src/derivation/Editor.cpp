#include "derivation/Editor.h"

#include <algorithm>

namespace Derivation {

void Editor::number( std::size_t at, std::size_t bytes, U32 value ) {
   putNumber( packet_.frame, at, bytes, value );
   replaced_.push_back( { at, bytes, bytes } );
}

void Editor::remove( std::size_t at, std::size_t bytes ) {
   replaced_.push_back( { at, bytes, 0 } );
}

std::size_t Editor::moved( std::size_t at ) const {
   auto to = at;
   for ( auto const & replaced : replaced_ ) {
      if ( replaced.at < at ) {
         to -= replaced.bytes - replaced.by;
      }
   }
   return to;
}

// Sets the lengths of the layers below the message, and removes the bytes.
void Editor::cut() {
   auto const & layers = packet_.layers;
   auto const less = layers.end - moved( layers.end );
   if ( less == 0 ) {
      return;
   }
   auto const shorten = [ & ]( std::size_t at ) {
      u16( at, static_cast< U16 >( u16At( packet_.frame, at ) - less ) );
   };
   if ( layers.carrier == Carrier::llc || layers.carrier == Carrier::snap ) {
      shorten( layers.type );
   }
   if ( layers.ip != 0 ) {
      shorten( layers.ip + ( packet_.isIpv4() ? 2 : 4 ) );
   }
   if ( layers.udp != 0 ) {
      shorten( layers.udp + 4 );
   }
   auto const end = moved( layers.end );
   std::sort( replaced_.begin(), replaced_.end(),
              []( auto const & a, auto const & b ) { return a.at < b.at; } );
   for ( auto replaced = replaced_.rbegin(); replaced != replaced_.rend(); ++replaced ) {
      if ( replaced->by == 0 ) {
         packet_.frame.erase( replaced->at, replaced->bytes );
      }
   }
   packet_.layers.end = end;
}

void Editor::finish( Heard & heard ) {
   auto const original = packet_.layers;
   cut();
   auto const fix = [ & ]( Checksum const & checksum ) {
      putChecksum( packet_, { .at = moved( checksum.at ),
                              .begin = checksum.begin,
                              .end = moved( checksum.end ),
                              .pseudoHeader = checksum.pseudoHeader,
                              .hole = checksum.hole,
                              .holeBytes = checksum.holeBytes } );
   };
   if ( original.ip != 0 && packet_.isIpv4() && packet_.layers.end != original.end ) {
      auto const header = 4U * ( u8At( packet_.frame, original.ip ) & 0xfU );
      checksums_.push_back(
         { .at = original.ip + 10, .begin = original.ip, .end = original.ip + header } );
   }
   // UDP over IPv4 may be without.
   if ( original.udp != 0 && u16At( packet_.frame, original.udp + 6 ) != 0 ) {
      checksums_.push_back( { .at = original.udp + 6,
                              .begin = original.udp,
                              .end = original.end,
                              .pseudoHeader = true } );
   }
   for ( auto const & checksum : checksums_ ) {
      fix( checksum );
   }
   for ( auto const & checksum : checksums_ ) {
      replaced_.push_back( { checksum.at, 2, 2 } );
   }
   std::sort( replaced_.begin(), replaced_.end(),
              []( auto const & a, auto const & b ) { return a.at < b.at; } );
   heard.goodbye = packet_.frame;
   heard.replaced = replaced_;
}

} // namespace Derivation
