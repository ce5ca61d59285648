// IP packets for tests, and what must be heard in them.
#pragma once

#include "tests/derivation/Frames.h"

namespace Derivation::Test {

// Where an IP packet goes, as hexadecimal digits, and its rarer fields.
struct Way {
   std::string destinationMac, source, destination;
   U8 hopLimit = 1;
};

inline Ip ipOf( Way const & way, U8 protocol, std::string const & payload ) {
   return { way.source, way.destination, protocol, payload, way.hopLimit };
}

inline std::string ipv4( Way const & way, U8 protocol, std::string const & payload ) {
   return patched( ipv4( ipOf( way, protocol, payload ) ), 0, hex( way.destinationMac ) );
}
inline std::string ipv6( Way const & way, U8 protocol, std::string const & payload ) {
   return patched( ipv6( ipOf( way, protocol, payload ) ), 0, hex( way.destinationMac ) );
}

// The sum of the pseudo header alone, not complemented, is what the kernel leaves for the device to complete.
enum class UdpChecksum { complete, partial, none };

inline std::string udpOf( Way const & way, std::string const & ports, std::string const & payload,
                          UdpChecksum checksumIs ) {
   auto const datagram = hex( ports ) + u16( 8 + payload.size() ) + u16( 0 ) + payload;
   auto const pseudo = pseudoHeader( ipOf( way, 17, datagram ) );
   auto partial = checksum( pseudo );
   for ( auto & byte : partial ) {
      byte = static_cast< char >( ~byte );
   }
   switch ( checksumIs ) {
   case UdpChecksum::complete:
      return summed( datagram, 6, pseudo );
   case UdpChecksum::partial:
      return patched( datagram, 6, partial );
   case UdpChecksum::none:
      break;
   }
   return datagram;
}

// `ports` are the source and the destination port, as hexadecimal digits.
inline std::string udp4( Way const & way, std::string const & ports, std::string const & payload,
                         UdpChecksum checksumIs = UdpChecksum::complete ) {
   return ipv4( way, 17, udpOf( way, ports, payload, checksumIs ) );
}
inline std::string udp6( Way const & way, std::string const & ports, std::string const & payload,
                         UdpChecksum checksumIs = UdpChecksum::complete ) {
   return ipv6( way, 17, udpOf( way, ports, payload, checksumIs ) );
}

// A frame, and all that must be heard in it.
struct Case {
   std::string name;
   std::string frame;
   std::string goodbye;
   std::string protocol;
   std::string speaker;
   std::string says;
   std::string change;
   std::chrono::milliseconds holdTime;
   std::string part = "";
};
using Cases = std::vector< Case >;

// The cases, which are samples from now on.
inline Cases registered( Cases cases ) {
   for ( auto const & one : cases ) {
      Sample( one.protocol + ", " + one.name, one.frame );
   }
   return cases;
}

inline void expectHeard( Case const & one ) {
   auto const heard = heardOf( one.frame );
   EXPECT_EQ( heard.protocol, one.protocol );
   EXPECT_EQ( heard.speaker, one.speaker );
   EXPECT_EQ( heard.says, one.says );
   EXPECT_EQ( heard.change, one.change );
   EXPECT_EQ( heard.part, one.part );
   EXPECT_EQ( heard.holdTime, one.holdTime );
   EXPECT_EQ( heard.whyNot, "" );
   EXPECT_FALSE( heard.leaves );
   EXPECT_EQ( heard.greeting, one.frame );
   EXPECT_EQ( heard.goodbye, one.goodbye );
   auto const goodbye = heardOf( one.goodbye );
   EXPECT_TRUE( goodbye.leaves );
   EXPECT_EQ( goodbye.part, one.part );
   EXPECT_EQ( goodbye.change, "" );
   EXPECT_EQ( goodbye.whyNot, "" );
}

// With each kind of tag, and with padding.
inline void expectAroundKept( Case const & one ) {
   for ( auto const * const tag : { "8100 c12c", "88a8 012c" } ) {
      auto const heard = heardOf( tagged( one.frame, tag ) );
      EXPECT_EQ( heard.greeting, tagged( one.frame, tag ) );
      EXPECT_EQ( heard.goodbye, tagged( one.goodbye, tag ) );
   }
   auto const padding = hex( "000102" );
   auto const heard = heardOf( one.frame + padding );
   EXPECT_EQ( heard.greeting, one.frame + padding );
   EXPECT_EQ( heard.goodbye, one.goodbye + padding );
}

// The length of IP says where the frame ends.
inline void expectCutRefused( Case const & one ) {
   for ( std::size_t length = 0; length < one.frame.size(); ++length ) {
      EXPECT_NE( refusalOf( one.frame.substr( 0, length ) ), "heard" ) << "cut after " << length;
   }
}

inline void expectCases( Cases const & cases ) {
   for ( auto const & one : cases ) {
      SCOPED_TRACE( one.name );
      expectHeard( one );
      expectAroundKept( one );
      expectCutRefused( one );
   }
}

// Why no goodbye can be derived from a valid frame.
inline std::string whyNot( std::string const & frame ) {
   auto const heard = heardOf( frame );
   EXPECT_EQ( heard.goodbye, "" );
   EXPECT_EQ( heard.change, "" );
   EXPECT_EQ( heard.greeting, frame );
   return heard.whyNot;
}

} // namespace Derivation::Test
