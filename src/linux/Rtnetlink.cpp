#include "linux/Rtnetlink.h"

#include <algorithm>
#include <cstring>
#include <linux/if.h>
#include <linux/if_arp.h>
#include <linux/rtnetlink.h>
#include <optional>
#include <sys/socket.h>

namespace Valen::Linux::Rtnetlink {

namespace {

using Bytes = std::span< std::byte const >;

constexpr std::size_t aligned( std::size_t size ) noexcept {
   return ( size + 3 ) & ~std::size_t( 3 );
}

// Takes a T off the front, with the padding behind it; nothing if there are too few bytes.
template < class T > std::optional< T > take( Bytes & bytes ) noexcept {
   if ( bytes.size() < sizeof( T ) ) {
      return std::nullopt;
   }
   T value;
   std::memcpy( &value, bytes.data(), sizeof value );
   bytes = bytes.subspan( std::min( aligned( sizeof value ), bytes.size() ) );
   return value;
}

// Takes the payload of a message of `length` bytes, whose header of `headerSize` bytes is counted in
// `length` and has been taken already. Nothing if the length is invalid.
std::optional< Bytes > takePayload( Bytes & bytes, std::size_t length,
                                    std::size_t headerSize ) noexcept {
   if ( length < headerSize || length - headerSize > bytes.size() ) {
      return std::nullopt;
   }
   auto const payload = bytes.first( length - headerSize );
   bytes = bytes.subspan( std::min( aligned( payload.size() ), bytes.size() ) );
   return payload;
}

std::string_view textOf( Bytes payload ) noexcept {
   auto const * const text = reinterpret_cast< char const * >( payload.data() );
   return { text, payload.empty() ? 0 : ::strnlen( text, payload.size() ) };
}

void attribute( Message & message, unsigned type, Bytes payload ) noexcept {
   if ( type == IFLA_IFNAME ) {
      message.deviceName = textOf( payload );
   } else if ( type == IFLA_MTU ) {
      message.mtu = take< U32 >( payload ).value_or( 0 );
   } else if ( type == IFLA_CARRIER_UP_COUNT ) {
      message.carrierUps = take< U32 >( payload ).value_or( 0 );
   }
}

// Returns whether the message is valid.
bool link( Message & message, Bytes payload, Message::Kind kind ) noexcept {
   auto const info = take< ifinfomsg >( payload );
   if ( !info ) {
      return false;
   }
   // A bridge reports its ports in messages of its own family. A port that leaves the bridge is not a
   // device that was deleted.
   if ( info->ifi_family != AF_UNSPEC || info->ifi_index <= 0 ) {
      return true;
   }
   message.ifIndex = static_cast< U32 >( info->ifi_index );
   message.hardwareType = info->ifi_type;
   message.flags = info->ifi_flags;
   while ( !payload.empty() ) {
      auto const header = take< rtattr >( payload );
      auto const value =
         header ? takePayload( payload, header->rta_len, sizeof *header ) : std::nullopt;
      if ( !value ) {
         return false;
      }
      attribute( message, header->rta_type & NLA_TYPE_MASK, *value );
   }
   message.kind = kind;
   return true;
}

bool answer( Message & message, Bytes payload, Message::Kind kind ) noexcept {
   auto const error = take< int >( payload );
   if ( !error && kind == Message::Kind::error ) {
      return false;
   }
   message.kind = kind;
   message.error = error && *error < 0 && *error > -4096 ? -*error : 0;
   return true;
}

bool body( Message & message, U16 type, Bytes payload ) noexcept {
   switch ( type ) {
   case RTM_NEWLINK:
      return link( message, payload, Message::Kind::link );
   case RTM_DELLINK:
      return link( message, payload, Message::Kind::linkDel );
   case NLMSG_DONE:
      return answer( message, payload, Message::Kind::done );
   case NLMSG_ERROR:
      return answer( message, payload, Message::Kind::error );
   case NLMSG_OVERRUN:
      message.kind = Message::Kind::overrun;
      return true;
   default:
      return true;
   }
}

std::vector< std::byte > request( U16 type, U16 flags, U32 sequence, ifinfomsg const & info ) {
   static_assert( sizeof( nlmsghdr ) == NLMSG_HDRLEN );
   nlmsghdr header{};
   header.nlmsg_len = sizeof header + sizeof info;
   header.nlmsg_type = type;
   header.nlmsg_flags = static_cast< U16 >( NLM_F_REQUEST | flags );
   header.nlmsg_seq = sequence;
   std::vector< std::byte > bytes( header.nlmsg_len );
   std::memcpy( bytes.data(), &header, sizeof header );
   std::memcpy( bytes.data() + sizeof header, &info, sizeof info );
   return bytes;
}

// Sets the flag IFF_UP of a device to that of `flags`.
std::vector< std::byte > flagRequest( U32 sequence, U32 ifIndex, unsigned flags ) {
   ifinfomsg info{};
   info.ifi_index = static_cast< int >( ifIndex );
   info.ifi_flags = flags;
   info.ifi_change = IFF_UP;
   return request( RTM_NEWLINK, NLM_F_ACK, sequence, info );
}

} // namespace

bool Parser::next( Message & message ) noexcept {
   message = Message();
   if ( rest_.empty() || damaged_ ) {
      return false;
   }
   auto const header = take< nlmsghdr >( rest_ );
   auto const payload =
      header ? takePayload( rest_, header->nlmsg_len, sizeof *header ) : std::nullopt;
   if ( !payload ) {
      damaged_ = true;
      return false;
   }
   message.sequence = header->nlmsg_seq;
   message.interrupted = header->nlmsg_flags & NLM_F_DUMP_INTR;
   damaged_ = !body( message, header->nlmsg_type, *payload );
   return !damaged_;
}

std::string linkLayerOf( U16 hardwareType ) {
   switch ( hardwareType ) {
   case ARPHRD_ETHER:
      return "ether";
   case ARPHRD_LOOPBACK:
      return "loopback";
   case ARPHRD_NONE: // tun, WireGuard
      return "none";
   case ARPHRD_PPP:
      return "ppp";
   case ARPHRD_TUNNEL:
      return "ipip";
   case ARPHRD_TUNNEL6:
      return "tunnel6";
   case ARPHRD_SIT:
      return "sit";
   case ARPHRD_IPGRE:
      return "gre";
   case ARPHRD_IP6GRE:
      return "gre6";
   case ARPHRD_INFINIBAND:
      return "infiniband";
   default:
      return "[" + std::to_string( hardwareType ) + "]";
   }
}

std::vector< std::byte > dumpRequest( U32 sequence ) {
   return request( RTM_GETLINK, NLM_F_DUMP, sequence, ifinfomsg{} );
}

std::vector< std::byte > upRequest( U32 sequence, U32 ifIndex ) {
   return flagRequest( sequence, ifIndex, IFF_UP );
}

std::vector< std::byte > downRequest( U32 sequence, U32 ifIndex ) {
   return flagRequest( sequence, ifIndex, 0 );
}

} // namespace Valen::Linux::Rtnetlink
