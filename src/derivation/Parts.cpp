#include "derivation/Parts.h"

#include "derivation/Words.h"

#include <algorithm>

namespace Derivation {

namespace {

// 64 bits of FNV-1a.
std::string hashText( std::vector< std::string > const & names ) {
   U64 hash = 0xcbf29ce484222325;
   for ( auto const & name : names ) {
      for ( char const byte : name + '\n' ) {
         hash = ( hash ^ static_cast< U8 >( byte ) ) * 0x100000001b3;
      }
   }
   std::string bytes;
   for ( int shift = 56; shift >= 0; shift -= 8 ) {
      bytes += static_cast< char >( hash >> shift );
   }
   return hexText( bytes );
}

} // namespace

std::string partOf( Packet const & packet ) {
   constexpr U8 group = 1;
   bool const toGroup = ( u8At( packet.frame, 0 ) & group ) != 0;
   return toGroup ? "" : "to " + ipText( packet.destination() );
}

std::string partOf( std::vector< std::string > names ) {
   std::sort( names.begin(), names.end() );
   auto text = names.front();
   if ( names.size() > 1 ) {
      text += " and " + std::to_string( names.size() - 1 ) + " more, " + hashText( names );
   }
   return text;
}

std::string partOf( Packet const & packet, std::vector< std::string > names ) {
   auto const neighbor = partOf( packet );
   return partOf( std::move( names ) ) + ( neighbor.empty() ? "" : " " + neighbor );
}

} // namespace Derivation
