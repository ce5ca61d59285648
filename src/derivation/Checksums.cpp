#include "derivation/Checksums.h"

namespace Derivation {

namespace {

// With the value of the field.
U16 sumOf( Packet const & packet, Checksum const & checksum ) {
   auto const covered =
      std::string_view( packet.frame ).substr( checksum.begin, checksum.end - checksum.begin );
   auto const after = checksum.hole + checksum.holeBytes;
   return onesSum( { checksum.pseudoHeader ? pseudoHeader( packet, covered.size() ) : "",
                     covered.substr( 0, checksum.hole ), covered.substr( after ) } );
}

} // namespace

U16 onesSum( std::initializer_list< std::string_view > parts ) {
   U64 sum = 0;
   for ( auto const part : parts ) {
      for ( std::size_t i = 0; i < part.size(); ++i ) {
         U64 const byte = static_cast< U8 >( part[ i ] );
         sum += i % 2 == 0 ? byte << 8 : byte;
      }
   }
   while ( sum > 0xffff ) {
      sum = ( sum & 0xffff ) + ( sum >> 16 );
   }
   return static_cast< U16 >( sum );
}

std::string pseudoHeader( Packet const & packet, std::size_t length ) {
   std::string header( packet.source() );
   header += packet.destination();
   auto const low = static_cast< char >( length ), high = static_cast< char >( length >> 8 );
   auto const protocol = static_cast< char >( packet.layers.ipProtocol );
   if ( packet.isIpv4() ) {
      return header.append( { 0, protocol, high, low } );
   }
   return header.append( { 0, 0, high, low, 0, 0, 0, protocol } );
}

bool isCorrect( Packet const & packet, Checksum const & checksum ) {
   require( checksum.at >= checksum.begin && checksum.at + 2 <= checksum.end &&
               checksum.end <= packet.frame.size() &&
               checksum.hole + checksum.holeBytes <= checksum.end - checksum.begin,
            Reason::cutOff );
   return sumOf( packet, checksum ) == 0xffff;
}

void requireCorrect( Packet const & packet, Checksum const & checksum ) {
   require( isCorrect( packet, checksum ), Reason::badChecksum );
}

void putChecksum( Packet & packet, Checksum const & checksum ) {
   putNumber( packet.frame, checksum.at, 2, 0 );
   auto const complement = static_cast< U16 >( ~sumOf( packet, checksum ) );
   // In UDP, zero says that there is no checksum; 0xffff has the same value (RFC 768).
   bool const isZeroInUdp = complement == 0 && packet.layers.udp != 0 && checksum.pseudoHeader;
   putNumber( packet.frame, checksum.at, 2, isZeroInUdp ? 0xffff : complement );
}

} // namespace Derivation
