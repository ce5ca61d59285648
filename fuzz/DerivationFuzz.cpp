// Feeds any frame to the derivation of goodbyes. It must not read outside the frame. What it makes of a frame must hold:
// the greeting says the same as the frame; the goodbye is one, of the same speaker, and differs from the greeting
// only where that is said.
#include "derivation/Checksums.h"
#include "derivation/Derive.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

using namespace Derivation;

void require( bool condition ) {
   if ( !condition ) {
      std::abort();
   }
}

Heard heardOf( std::string const & frame ) {
   auto derived = derive( frame );
   require( derived && std::holds_alternative< Heard >( *derived ) );
   return std::get< Heard >( *derived );
}

void requireSameOutside( Heard const & heard ) {
   std::string frame;
   std::size_t from = 0, to = 0;
   for ( auto const & [ at, bytes, by ] : heard.replaced ) {
      require( at >= from && at + bytes <= heard.greeting.size() );
      to += at - from;
      require( to + by <= heard.goodbye.size() );
      frame += heard.greeting.substr( from, at - from ) + heard.goodbye.substr( to, by );
      to += by;
      from = at + bytes;
   }
   require( frame + heard.greeting.substr( from ) == heard.goodbye );
}

void check( Heard const & heard ) {
   auto const again = heardOf( heard.greeting );
   require( again.greeting == heard.greeting && again.goodbye == heard.goodbye &&
            again.protocol == heard.protocol && again.speaker == heard.speaker &&
            again.says == heard.says && again.leaves == heard.leaves &&
            again.holdTime == heard.holdTime && again.part == heard.part &&
            again.change == heard.change && again.whyNot == heard.whyNot );
   require( heard.goodbye.empty() == ( heard.leaves || !heard.whyNot.empty() ) );
   require( heard.change.empty() == heard.goodbye.empty() );
   require( !heard.speaker.empty() && !heard.says.empty() );
   if ( !heard.goodbye.empty() ) {
      requireSameOutside( heard );
      auto const goodbye = heardOf( heard.goodbye );
      require( goodbye.leaves && goodbye.protocol == heard.protocol &&
               goodbye.speaker == heard.speaker && goodbye.part == heard.part &&
               goodbye.greeting == heard.goodbye );
   }
}

// Where the checksum of a message is. VRRP over IPv4 may have it without a pseudo header.
struct Summed {
   Carrier carrier;
   U16 number;
   std::size_t at;
   bool pseudoHeader;
   // Bytes that it does not cover, in OSPF.
   std::size_t hole = 0;
   std::size_t holeBytes = 0;
};
constexpr Summed summed[] = {
   { Carrier::ipv4, 2, 2, false },   { Carrier::ipv4, 88, 2, false },
   { Carrier::ipv6, 88, 2, false },  { Carrier::ipv4, 89, 12, false, 16, 8 },
   { Carrier::ipv4, 103, 2, false }, { Carrier::ipv6, 103, 2, true },
   { Carrier::ipv4, 112, 6, false }, { Carrier::ipv6, 112, 6, true },
   { Carrier::icmp6, 131, 2, true }, { Carrier::icmp6, 132, 2, true },
   { Carrier::icmp6, 134, 2, true }, { Carrier::icmp6, 143, 2, true },
   { Carrier::ipv6, 89, 12, true },  { Carrier::snap, 0x2000, 2, false },
};

std::size_t endOfIp( std::string const & frame, Layers const & layers ) {
   bool const version4 = u8At( frame, layers.ip ) >> 4 == 4;
   auto const length = u16At( frame, layers.ip + ( version4 ? 2U : 4U ) );
   return layers.ip + ( version4 ? 0U : 40U ) + length;
}

void putSum( Packet & packet, Summed const & sum ) {
   auto const begin = packet.layers.message;
   auto end = packet.layers.end;
   if ( sum.holeBytes != 0 && end - begin >= sum.hole ) {
      // OSPF has a length of its own, behind which more may follow.
      end = std::min< std::size_t >( end, begin + u16At( packet.frame, begin + 2 ) );
   }
   if ( std::max( sum.at + 2, sum.hole + sum.holeBytes ) <= end - begin ) {
      putChecksum( packet, { .at = begin + sum.at,
                             .begin = begin,
                             .end = end,
                             .pseudoHeader = sum.pseudoHeader,
                             .hole = sum.hole,
                             .holeBytes = sum.holeBytes } );
   }
}

// Sets the lengths and checksums right, so that what is in the message gets a chance.
std::string completed( std::string frame ) {
   auto const layers = layersOf( frame );
   if ( !layers ) {
      return frame;
   }
   Packet packet{ std::move( frame ), *layers };
   auto & bytes = packet.frame;
   auto & end = packet.layers.end;
   if ( layers->ip == 0 ) {
      bool const hasLength = layers->carrier == Carrier::llc || layers->carrier == Carrier::snap;
      if ( hasLength && u16At( bytes, layers->type ) + layers->type + 2 > bytes.size() ) {
         putNumber( bytes, layers->type, 2, static_cast< U32 >( bytes.size() - layers->type - 2 ) );
      }
      end = hasLength ? layers->type + 2 + u16At( bytes, layers->type ) : end;
   } else {
      if ( endOfIp( bytes, *layers ) > bytes.size() ||
           endOfIp( bytes, *layers ) < layers->message ) {
         auto const before = layers->ip + ( packet.isIpv4() ? 0U : 40U );
         putNumber( bytes, layers->ip + ( packet.isIpv4() ? 2U : 4U ), 2,
                    static_cast< U32 >( bytes.size() - before ) );
      }
      end = endOfIp( bytes, *layers );
      if ( packet.isIpv4() ) {
         auto const header = 4U * ( u8At( bytes, layers->ip ) & 0xfU );
         putChecksum( packet,
                      { .at = layers->ip + 10, .begin = layers->ip, .end = layers->ip + header } );
      }
   }
   if ( layers->message > end || end > bytes.size() ) {
      return bytes;
   }
   if ( layers->udp != 0 ) {
      putNumber( bytes, layers->udp + 4, 2, static_cast< U32 >( end - layers->udp ) );
      putChecksum(
         packet,
         { .at = layers->udp + 6, .begin = layers->udp, .end = end, .pseudoHeader = true } );
   }
   for ( auto const & sum : summed ) {
      if ( layers->carrier == sum.carrier && layers->number == sum.number ) {
         putSum( packet, sum );
      }
   }
   return bytes;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput( std::uint8_t const * data, std::size_t size ) {
   std::string const frame( reinterpret_cast< char const * >( data ), size );
   auto const derived = derive( frame );
   if ( derived && std::holds_alternative< Heard >( *derived ) ) {
      check( std::get< Heard >( *derived ) );
   }
   return 0;
}

extern "C" std::size_t LLVMFuzzerMutate( std::uint8_t * data, std::size_t size, std::size_t most );

extern "C" std::size_t LLVMFuzzerCustomMutator( std::uint8_t * data, std::size_t size,
                                                std::size_t most, unsigned seed ) {
   auto const mutated = LLVMFuzzerMutate( data, size, most );
   if ( seed % 8 == 0 ) {
      return mutated; // wrong ones as well
   }
   auto const frame = completed( std::string( reinterpret_cast< char const * >( data ), mutated ) );
   std::memcpy( data, frame.data(), frame.size() );
   return frame.size();
}
