#include "linux/Rtnetlink.h"

#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <linux/if.h>
#include <linux/if_arp.h>
#include <linux/rtnetlink.h>
#include <random>
#include <string>
#include <sys/socket.h>

namespace Valen::Linux::Rtnetlink {
namespace {

using Kind = Message::Kind;

// Builds datagrams as the kernel does.
class Datagram {
 public:
   template < class T > Datagram & put( T const & value ) {
      auto const * const bytes = reinterpret_cast< std::byte const * >( &value );
      bytes_.insert( bytes_.end(), bytes, bytes + sizeof value );
      return *this;
   }
   Datagram & begin( int type, int flags = 0, U32 sequence = 0 ) {
      start_ = bytes_.size();
      return put(
         nlmsghdr{ 0, static_cast< U16 >( type ), static_cast< U16 >( flags ), sequence, 0 } );
   }
   Datagram & link( int index, unsigned flags = 0, unsigned char family = AF_UNSPEC ) {
      ifinfomsg info{};
      info.ifi_family = family;
      info.ifi_index = index;
      info.ifi_flags = flags;
      info.ifi_type = ARPHRD_SIT;
      return put( info );
   }
   Datagram & attribute( int type, std::string_view payload ) {
      put( rtattr{ static_cast< U16 >( sizeof( rtattr ) + payload.size() ),
                   static_cast< U16 >( type ) } );
      for ( char const c : payload ) {
         put( c );
      }
      bytes_.resize( ( bytes_.size() + 3 ) & ~std::size_t( 3 ) );
      return *this;
   }
   Datagram & number( int type, U32 value ) {
      return attribute( type, { reinterpret_cast< char const * >( &value ), sizeof value } );
   }
   // Ends a message. `wrongBy` is added to its length.
   Datagram & end( int wrongBy = 0 ) {
      auto const length =
         static_cast< U32 >( static_cast< int >( bytes_.size() - start_ ) + wrongBy );
      std::memcpy( bytes_.data() + start_, &length, sizeof length );
      return *this;
   }
   std::vector< std::byte > const & bytes() const { return bytes_; }

 private:
   std::vector< std::byte > bytes_;
   std::size_t start_ = 0;
};

TEST( RtnetlinkTest, LinkLayersHaveTheNamesThatIpShows ) {
   EXPECT_EQ( linkLayerOf( ARPHRD_ETHER ), "ether" );
   EXPECT_EQ( linkLayerOf( ARPHRD_NONE ), "none" );
   EXPECT_EQ( linkLayerOf( ARPHRD_SIT ), "sit" );
   EXPECT_EQ( linkLayerOf( ARPHRD_LOOPBACK ), "loopback" );
   EXPECT_EQ( linkLayerOf( 803 ), "[803]" );
}

TEST( RtnetlinkTest, ParsesALink ) {
   Datagram const datagram = Datagram()
                                .begin( RTM_NEWLINK, NLM_F_MULTI, 9 )
                                .link( 7, IFF_UP | IFF_BROADCAST )
                                .attribute( IFLA_QDISC, "noqueue" )
                                .attribute( IFLA_IFNAME, std::string_view( "et1\0", 4 ) )
                                .number( IFLA_MTU, 9214 )
                                .number( IFLA_CARRIER_UP_COUNT, 3 )
                                .end();
   Parser parser( datagram.bytes() );
   Message message;
   ASSERT_TRUE( parser.next( message ) );
   EXPECT_EQ( message.kind, Kind::link );
   EXPECT_EQ( message.sequence, 9u );
   EXPECT_EQ( message.ifIndex, 7u );
   EXPECT_EQ( message.deviceName, "et1" );
   EXPECT_EQ( message.flags, U32{ IFF_UP | IFF_BROADCAST } );
   EXPECT_EQ( message.mtu, 9214u );
   EXPECT_EQ( message.hardwareType, ARPHRD_SIT );
   EXPECT_EQ( message.carrierUps, 3u );
   EXPECT_FALSE( message.interrupted );
   EXPECT_FALSE( parser.next( message ) );
   EXPECT_FALSE( parser.damaged() );
}

TEST( RtnetlinkTest, ParsesTheMessagesOfADatagramInOrder ) {
   Datagram const datagram =
      Datagram()
         .begin( RTM_NEWLINK )
         .link( 1 )
         .attribute( IFLA_IFNAME, "abcde" ) // without a terminator or padding
         .end()
         .begin( RTM_DELLINK )
         .link( 2 )
         .end()
         .begin( RTM_NEWADDR )
         .put( 0 )
         .end()
         .begin( NLMSG_OVERRUN )
         .end()
         .begin( NLMSG_DONE, NLM_F_DUMP_INTR )
         .put( 0 )
         .end();
   Parser parser( datagram.bytes() );
   Message message;
   ASSERT_TRUE( parser.next( message ) );
   EXPECT_EQ( message.deviceName, "abcde" );
   ASSERT_TRUE( parser.next( message ) );
   EXPECT_EQ( message.kind, Kind::linkDel );
   EXPECT_EQ( message.ifIndex, 2u );
   EXPECT_EQ( message.deviceName, "" );
   ASSERT_TRUE( parser.next( message ) );
   EXPECT_EQ( message.kind, Kind::other );
   ASSERT_TRUE( parser.next( message ) );
   EXPECT_EQ( message.kind, Kind::overrun );
   ASSERT_TRUE( parser.next( message ) );
   EXPECT_EQ( message.kind, Kind::done );
   EXPECT_TRUE( message.interrupted );
   EXPECT_FALSE( parser.next( message ) );
   EXPECT_FALSE( parser.damaged() );
}

// The kernel reports a port that leaves its bridge as RTM_DELLINK of the bridge's family.
TEST( RtnetlinkTest, MessagesOfOtherFamiliesAreNotDevices ) {
   Datagram const datagram =
      Datagram().begin( RTM_DELLINK ).link( 7, 0, AF_BRIDGE ).attribute( IFLA_IFNAME, "et1" ).end();
   Parser parser( datagram.bytes() );
   Message message;
   ASSERT_TRUE( parser.next( message ) );
   EXPECT_EQ( message.kind, Kind::other );
}

TEST( RtnetlinkTest, AnswersHaveTheirErrno ) {
   Datagram const datagram = Datagram()
                                .begin( NLMSG_ERROR, 0, 3 )
                                .put( -ENODEV )
                                .put( nlmsghdr{} )
                                .end()
                                .begin( NLMSG_ERROR )
                                .put( 0 )
                                .end()
                                .begin( NLMSG_ERROR )
                                .put( 1 << 31 ) // not an errno
                                .end()
                                .begin( NLMSG_DONE )
                                .put( -ENOBUFS )
                                .end();
   Parser parser( datagram.bytes() );
   Message message;
   for ( int const error : { ENODEV, 0, 0, ENOBUFS } ) {
      ASSERT_TRUE( parser.next( message ) );
      EXPECT_EQ( message.error, error );
   }
   EXPECT_EQ( message.kind, Kind::done );
}

// Whether the parser rejects the datagram before its end, without a message.
bool refused( Datagram const & datagram ) {
   Parser parser( datagram.bytes() );
   Message message;
   return !parser.next( message ) && parser.damaged() && !parser.next( message );
}

TEST( RtnetlinkTest, WrongLengthsAreRejected ) {
   for ( int const wrongBy : { 1, 4, 1 << 20, -17, -28, -33 } ) {
      EXPECT_TRUE( refused( Datagram().begin( RTM_NEWLINK ).link( 7 ).end( wrongBy ) ) ) << wrongBy;
   }
   EXPECT_TRUE( refused( Datagram().begin( RTM_NEWLINK ).put( 1 ).end() ) );
   EXPECT_TRUE( refused( Datagram().begin( NLMSG_ERROR ).end() ) );
   EXPECT_TRUE( refused( Datagram().put( 1 ) ) );
   for ( auto const length : std::initializer_list< U16 >{ 0, 3, 9, 65535 } ) {
      EXPECT_TRUE( refused( Datagram()
                               .begin( RTM_NEWLINK )
                               .link( 7 )
                               .put( rtattr{ length, IFLA_IFNAME } )
                               .put( 0 )
                               .end() ) )
         << length;
   }
}

TEST( RtnetlinkTest, AShortMtuAndAnEmptyNameAreIgnored ) {
   Datagram const datagram = Datagram()
                                .begin( RTM_NEWLINK )
                                .link( 7 )
                                .attribute( IFLA_MTU, "ab" )
                                .attribute( IFLA_IFNAME, "" )
                                .end();
   Parser parser( datagram.bytes() );
   Message message;
   ASSERT_TRUE( parser.next( message ) );
   EXPECT_EQ( message.mtu, 0u );
   EXPECT_EQ( message.deviceName, "" );
}

TEST( RtnetlinkTest, DevicesWithoutAnIndexAreNotDevices ) {
   for ( int const index : { 0, -1 } ) {
      Datagram const datagram = Datagram().begin( RTM_NEWLINK ).link( index ).end();
      Parser parser( datagram.bytes() );
      Message message;
      ASSERT_TRUE( parser.next( message ) );
      EXPECT_EQ( message.kind, Kind::other );
   }
}

// However a valid datagram is changed, the parser terminates and reads nothing outside it. The sanitizers
// detect that, because each attempt has its own memory.
TEST( RtnetlinkTest, DamagedDatagramsAreHarmless ) {
   auto const good = Datagram()
                        .begin( RTM_NEWLINK )
                        .link( 7 )
                        .attribute( IFLA_IFNAME, "et1" )
                        .number( IFLA_MTU, 1500 )
                        .end()
                        .begin( NLMSG_DONE )
                        .put( 0 )
                        .end()
                        .bytes();
   std::mt19937 random( 1 );
   for ( int i = 0; i < 20000; ++i ) {
      std::vector< std::byte > bytes(
         good.begin(), good.begin() + static_cast< long >( random() % good.size() ) );
      for ( auto flips = random() % 4; flips && !bytes.empty(); --flips ) {
         bytes[ random() % bytes.size() ] = std::byte( random() );
      }
      bytes.shrink_to_fit();
      Parser parser( bytes );
      Message message;
      std::size_t messages = 0;
      while ( parser.next( message ) ) {
         ASSERT_LE( ++messages, bytes.size() );
         ASSERT_LE( message.deviceName.size(), bytes.size() );
      }
   }
}

TEST( RtnetlinkTest, RequestsHaveTheKernelsFormat ) {
   auto const bytes = upRequest( 5, 7 );
   nlmsghdr header;
   ifinfomsg info;
   ASSERT_EQ( bytes.size(), sizeof header + sizeof info );
   std::memcpy( &header, bytes.data(), sizeof header );
   std::memcpy( &info, bytes.data() + sizeof header, sizeof info );
   EXPECT_EQ( header.nlmsg_len, bytes.size() );
   EXPECT_EQ( header.nlmsg_type, RTM_NEWLINK );
   EXPECT_EQ( header.nlmsg_flags, NLM_F_REQUEST | NLM_F_ACK );
   EXPECT_EQ( header.nlmsg_seq, 5u );
   EXPECT_EQ( info.ifi_index, 7 );
   EXPECT_EQ( info.ifi_flags, unsigned{ IFF_UP } );
   EXPECT_EQ( info.ifi_change, unsigned{ IFF_UP } ); // no other flag
   std::memcpy( &info, downRequest( 5, 7 ).data() + sizeof header, sizeof info );
   EXPECT_EQ( info.ifi_flags, 0u );
   EXPECT_EQ( info.ifi_change, unsigned{ IFF_UP } );
}

} // namespace
} // namespace Valen::Linux::Rtnetlink
