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

// Sets the lengths of the layers below the message.
void Editor::shorten() {
   auto const & layers = packet_.layers;
   auto const less = layers.end - moved( layers.end );
   if ( less == 0 ) {
      return;
   }
   auto const lengthAt = [ & ]( std::size_t at ) {
      u16( at, static_cast< U16 >( u16At( packet_.frame, at ) - less ) );
   };
   if ( layers.carrier == Carrier::llc || layers.carrier == Carrier::snap ) {
      lengthAt( layers.type );
   }
   if ( layers.udp != 0 ) {
      lengthAt( layers.udp + 4 );
   }
   if ( layers.ip != 0 && packet_.isIpv4() ) {
      lengthAt( layers.ip + 2 );
      auto const header = 4U * ( u8At( packet_.frame, layers.ip ) & 0xfU );
      fixChecksum( { .at = layers.ip + 10, .begin = layers.ip, .end = layers.ip + header } );
   } else if ( layers.ip != 0 ) {
      lengthAt( layers.ip + 4 );
   }
}

// From the back, so that positions before stay what they are.
void Editor::cut() {
   sort();
   for ( auto replaced = replaced_.rbegin(); replaced != replaced_.rend(); ++replaced ) {
      if ( replaced->by == 0 ) {
         packet_.frame.erase( replaced->at, replaced->bytes );
      }
   }
}

void Editor::sort() {
   std::sort( replaced_.begin(), replaced_.end(),
              []( auto const & a, auto const & b ) { return a.at < b.at; } );
}

void Editor::finish( Heard & heard ) {
   auto const & layers = packet_.layers;
   shorten();
   constexpr std::size_t udpChecksum = 6; // over IPv4 there may be none
   if ( layers.udp != 0 && u16At( packet_.frame, layers.udp + udpChecksum ) != 0 ) {
      fixChecksum( { .at = layers.udp + udpChecksum,
                     .begin = layers.udp,
                     .end = layers.end,
                     .pseudoHeader = true } );
   }
   cut();
   for ( auto checksum : checksums_ ) {
      replaced_.push_back( { checksum.at, 2, 2 } );
      checksum.at = moved( checksum.at );
      checksum.end = moved( checksum.end );
      putChecksum( packet_, checksum );
   }
   sort();
   heard.goodbye = packet_.frame;
   heard.replaced = replaced_;
}

} // namespace Derivation
