#include "egress/Copies.h"
#include "egress/Mutes.h"
#include "goodbye/Rip.h"
#include "tests/egress/FilterFixture.h"

#include <cstring>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <thread>

namespace Egress {

namespace {

using namespace std::chrono_literals;
using namespace Test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// An LLDPDU of that length.
std::string longLldp( int port, std::size_t length ) {
   auto frame = lldp( port );
   frame.resize( length, static_cast< char >( port ) );
   return frame;
}

// Sent to a multicast address that bridges forward.
std::string rip( char const * source ) {
   return Goodbye::ripPoison( Goodbye::Mac( "02:00:00:00:00:01" ), Goodbye::Ipv4( source ),
                              { Goodbye::parseIpv4Prefix( "198.51.100.0/24" ) } );
}

std::string ethernet( int type, std::string const & payload ) {
   return bytes( { 1, 0, 0x5e, 0, 0, 1, 2, 0, 0, 0, 0, 1, type >> 8, type } ) + payload;
}

// With `words` words of header, of which those beyond 5 are options.
std::string ipv4( int protocol, std::string const & payload, int words = 5 ) {
   return ethernet( 0x0800, bytes( { 0x40 | words, 0xc0, 0, 0, 0, 0, 0, 0, 1, protocol, 0, 0 } ) +
                               bytes( { 192, 0, 2, 1, 224, 0, 0, 1 } ) +
                               std::string( 4 * static_cast< std::size_t >( words - 5 ), '\1' ) +
                               payload );
}

std::string ipv6( int next, std::string const & payload ) {
   return ethernet( 0x86dd, bytes( { 0x60, 0, 0, 0, 0, 0, next, 255 } ) + std::string( 32, '\1' ) +
                               payload );
}

// Of the fewest bytes, and no checksum: the filter looks at neither.
std::string udp( int port ) {
   return bytes( { 0, 9, port >> 8, port, 0, 8, 0, 0 } );
}

// A frame for each way of finding out its protocol.
std::vector< std::pair< std::string, std::string > > framesOfProtocols() {
   auto const hello = []( int version ) { return bytes( { version, 1, 0, 44 } ); };
   auto const mld = []( int type ) { return bytes( { 58, 0, 5, 2, 0, 0, 1, 0, type, 0 } ); };
   return {
      { "lldp", lldp( 1 ) },
      { "lacp", ethernet( 0x8809, bytes( { 1, 1 } ) ) },
      { "oam", ethernet( 0x8809, bytes( { 3, 0 } ) ) },
      { "isis", ethernet( 46, bytes( { 0xfe, 0xfe, 3, 0x83, 20, 1, 0, 15 } ) ) },
      { "cdp", ethernet( 46, bytes( { 0xaa, 0xaa, 3, 0, 0, 0x0c, 0x20, 0 } ) ) },
      { "igmp", ipv4( 2, bytes( { 0x17 } ) ) },
      { "igmp", ipv4( 2, bytes( { 0x22 } ), 6 ) },
      { "eigrp", ipv4( 88, "" ) },
      { "ospf", ipv4( 89, hello( 2 ) ) },
      { "pim", ipv4( 103, "" ) },
      { "vrrp", ipv4( 112, "" ) },
      { "vrrp", ipv4( 51, bytes( { 112, 4 } ) + std::string( 22, '\1' ) + bytes( { 0x21, 7 } ) ) },
      { "rip", ipv4( 17, udp( 520 ) ) },
      { "hsrp", ipv4( 17, udp( 1985 ) ) },
      { "hsrp", ipv4( 17, udp( 2029 ) ) },
      { "bfd", ipv4( 17, udp( 3784 ) ) },
      { "bfd", ipv4( 17, udp( 4784 ) ) },
      { "mdns", ipv4( 17, udp( 5353 ) ) },
      { "bfd", ipv4( 17, udp( 3784 ), 7 ) },
      { "ra", ipv6( 58, bytes( { 134, 0 } ) ) },
      { "mld", ipv6( 0, mld( 131 ) ) },
      { "mld", ipv6( 0, mld( 143 ) ) },
      { "mld", ipv6( 58, bytes( { 132, 0 } ) ) },
      { "eigrp", ipv6( 88, "" ) },
      { "ospfv3", ipv6( 89, hello( 3 ) ) },
      { "pim", ipv6( 103, "" ) },
      { "vrrp", ipv6( 112, "" ) },
      { "ripng", ipv6( 17, udp( 521 ) ) },
      { "hsrp", ipv6( 17, udp( 2029 ) ) },
      { "bfd", ipv6( 17, udp( 3784 ) ) },
      { "bfd", ipv6( 17, udp( 4784 ) ) },
      { "mdns", ipv6( 17, udp( 5353 ) ) },
   };
}

std::string tagged( std::string frame, std::initializer_list< int > tag ) {
   return frame.insert( 12, bytes( tag ) );
}

void runIn( TestNetNs const & netNs, std::string const & command ) {
   Valen::Test::run( "ip netns exec " + netNs.text() + " " + command );
}

// A copy, with its own bytes.
struct Got {
   egress_speaker speaker;
   bool muted;
   std::string frame;
};

std::vector< std::string > framesOf( std::vector< Got > const & all ) {
   std::vector< std::string > frames;
   for ( auto const & got : all ) {
      frames.push_back( got.frame );
   }
   return frames;
}

// A namespace whose kernel sends nothing on its own, with the filter on et1.
class CopiesTest : public FilterFixture {
 protected:
   void SetUp() override {
      FilterFixture::SetUp();
      if ( IsSkipped() ) {
         return;
      }
      copies_.emplace( filters_->copies() );
      isQuiet( near_ );
      device( "et1", "far1" );
      copies_->deviceIs( number_, near_.index( "et1" ) );
   }

   static void isQuiet( TestNetNs const & netNs ) {
      runIn( netNs, "sysctl -q net.ipv6.conf.all.disable_ipv6=1 "
                    "net.ipv6.conf.default.disable_ipv6=1" );
   }
   // A device with the filter, for long frames.
   void device( std::string const & name, std::string const & farName ) {
      near_.veth( name, far_, farName );
      near_.ip( "link set " + name + " mtu 9000" );
      far_.ip( "link set " + farName + " mtu 9000" );
      filters_->attach( number_, NetNsDirectories().open( near_.name() ), near_.index( name ) );
   }
   std::vector< Got > read( std::size_t budget = 100'000 ) {
      std::vector< Got > all;
      auto const count = copies_->read( budget, [ & ]( Copy const & copy ) {
         all.push_back( { copy.speaker, copy.muted, std::string( copy.frame ) } );
      } );
      EXPECT_EQ( count, all.size() );
      return all;
   }
   bool readable() const {
      pollfd ready{ copies_->descriptor(), POLLIN, 0 };
      return ::poll( &ready, 1, 0 ) == 1;
   }
   // The kernel makes the descriptor readable a moment after the frame was sent.
   bool becomesReadable() const {
      pollfd ready{ copies_->descriptor(), POLLIN, 0 };
      return ::poll( &ready, 1, 2000 ) == 1;
   }
   Speaker speaker( std::string const & frame ) const {
      return speakerOf( frame, number_, near_.index( "et1" ) ).value();
   }

   std::optional< Copies > copies_;
};

TEST_P( CopiesTest, ACopyIsTheFrameThatWasSent ) {
   PacketSocket daemon( near_, "et1" );
   for ( auto const & frame : { lldp( 1 ), rip( "192.0.2.1" ), longLldp( 2, EGRESS_HEAD ),
                                longLldp( 3, EGRESS_HEAD + 1 ), longLldp( 4, EGRESS_LONGEST ) } ) {
      ASSERT_TRUE( daemon.send( frame ) );

      auto const all = read();
      ASSERT_THAT( framesOf( all ), ElementsAre( frame ) );
      auto const expected = speaker( frame );
      EXPECT_EQ( std::memcmp( &all[ 0 ].speaker, &expected, sizeof expected ), 0 );
      EXPECT_FALSE( all[ 0 ].muted );
   }
}

TEST_P( CopiesTest, FramesOfEachProtocolAreCopied ) {
   PacketSocket daemon( near_, "et1" );
   for ( auto const & [ protocol, frame ] : framesOfProtocols() ) {
      auto const inVlan = tagged( frame, { 0x81, 0, 0, 20 } );
      for ( auto const & sent : { frame, inVlan, frame + std::string( 100, '\0' ) } ) {
         EXPECT_TRUE( daemon.send( sent ) );
         auto const all = read();
         EXPECT_THAT( framesOf( all ), ElementsAre( sent ) ) << protocol;
         EXPECT_TRUE( !all.empty() && protocolOf( all[ 0 ].speaker ) == protocol ) << protocol;
      }
   }
}

TEST_P( CopiesTest, DataIsNotCopied ) {
   PacketSocket daemon( near_, "et1" );
   auto data = rip( "192.0.2.1" );
   data[ 37 ]++; // the port

   EXPECT_TRUE( daemon.send( data ) );
   EXPECT_TRUE( daemon.send( Valen::Test::testFrame( "data" ) ) );
   EXPECT_TRUE( daemon.send( lldp( 1 ) ) );

   EXPECT_THAT( framesOf( read() ), ElementsAre( lldp( 1 ) ) );
}

TEST_P( CopiesTest, AFrameThatIsMutedIsCopiedAsSuch ) {
   PacketSocket daemon( near_, "et1" );
   PacketSocket neighbor( far_, "far1" );
   mutes_->mute( speaker( lldp( 1 ) ), std::chrono::steady_clock::now() + 1min );

   EXPECT_TRUE( daemon.send( lldp( 1, 11 ) ) );
   EXPECT_TRUE( daemon.send( lldp( 2 ) ) );

   auto const all = read();
   ASSERT_THAT( framesOf( all ), ElementsAre( lldp( 1, 11 ), lldp( 2 ) ) );
   EXPECT_TRUE( all[ 0 ].muted );
   EXPECT_FALSE( all[ 1 ].muted );
   EXPECT_THAT( neighbor.heardUntil( lldp( 2 ) ), ElementsAre( lldp( 2 ) ) );
}

TEST_P( CopiesTest, ATagInTheBytesIsInTheCopy ) {
   PacketSocket daemon( near_, "et1" );
   auto const frame = tagged( rip( "192.0.2.1" ), { 0x88, 0xa8, 0xa0, 20 } );

   EXPECT_TRUE( daemon.send( frame ) );

   auto const all = read();
   ASSERT_THAT( framesOf( all ), ElementsAre( frame ) );
   EXPECT_EQ( all[ 0 ].speaker.vlan, 20 );
}

TEST_P( CopiesTest, ATagBesideTheBytesIsInTheCopy ) {
   Tagging const tagging( near_, "et1", 0x600a ); // with the priority 3
   filters_->detach( number_, NetNsDirectories().open( near_.name() ), near_.index( "et1" ) );
   filters_->attach( number_, NetNsDirectories().open( near_.name() ), near_.index( "et1" ) );
   PacketSocket daemon( near_, "et1" );
   daemon.markIs( Tagging::mark );

   for ( auto const & frame : { lldp( 1 ), longLldp( 2, EGRESS_LONGEST ) } ) {
      EXPECT_TRUE( daemon.send( frame ) );

      auto const all = read();
      ASSERT_THAT( framesOf( all ), ElementsAre( tagged( frame, { 0x81, 0, 0x60, 10 } ) ) );
      EXPECT_EQ( all[ 0 ].speaker.vlan, 10 );
   }

   // The tag in the bytes would be another one.
   EXPECT_TRUE( daemon.send( tagged( lldp( 1 ), { 0x81, 0, 0, 20 } ) ) );
   EXPECT_THAT( read(), IsEmpty() );
}

TEST_P( CopiesTest, OwnFramesAreNotCopied ) {
   PacketSocket valend( near_, "et1" );
   PacketSocket daemon( near_, "et1" );
   valend.markIs( EGRESS_OWN_MARK );

   EXPECT_TRUE( valend.send( lldp( 1 ) ) );
   EXPECT_TRUE( daemon.send( lldp( 2 ) ) );

   EXPECT_THAT( framesOf( read() ), ElementsAre( lldp( 2 ) ) );
}

TEST_P( CopiesTest, BridgedFramesAreNotCopied ) {
   TestNetNs const host;
   isQuiet( host );
   host.veth( "eth0", near_, "port" );
   near_.ip( "link add br0 type bridge mcast_snooping 0" );
   near_.ip( "link set port master br0" );
   near_.ip( "link set et1 master br0" );
   near_.ip( "link set br0 up" );
   PacketSocket other( host, "eth0" );
   PacketSocket bridge( near_, "br0" );
   PacketSocket neighbor( far_, "far1" );

   EXPECT_TRUE( other.send( rip( "192.0.2.2" ) ) );
   EXPECT_THAT( neighbor.heardUntil( rip( "192.0.2.2" ) ), ElementsAre( rip( "192.0.2.2" ) ) );
   EXPECT_TRUE( bridge.send( rip( "192.0.2.1" ) ) ); // the machine's own
   neighbor.heardUntil( rip( "192.0.2.1" ) );

   EXPECT_THAT( framesOf( read() ), ElementsAre( rip( "192.0.2.1" ) ) );
}

// Sends a datagram of mDNS to 198.51.100.2.
void sendDatagram( TestNetNs const & from, char payload ) {
   auto const netNs = NetNsDirectories().open( from.name() );
   NetNsScope const inside( netNs );
   auto const fd =
      Valen::Linux::requireFd( ::socket( AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0 ), "socket" );
   sockaddr_in to{};
   to.sin_family = AF_INET;
   to.sin_port = htons( 5353 );
   ::inet_pton( AF_INET, "198.51.100.2", &to.sin_addr );
   EXPECT_EQ(
      ::sendto( fd.get(), &payload, 1, 0, reinterpret_cast< sockaddr * >( &to ), sizeof to ), 1 );
}

TEST_P( CopiesTest, RoutedFramesAreNotCopied ) {
   TestNetNs const host;
   host.veth( "eth0", near_, "in" );
   host.ip( "address add 192.0.2.2/24 dev eth0" );
   host.ip( "route add default via 192.0.2.1" );
   near_.ip( "address add 192.0.2.1/24 dev in" );
   near_.ip( "address add 198.51.100.1/24 dev et1" );
   near_.ip( "neighbor add 198.51.100.2 lladdr 02:00:00:00:00:02 dev et1" );
   runIn( near_, "sysctl -q net.ipv4.ip_forward=1" );
   PacketSocket neighbor( far_, "far1" );

   sendDatagram( host, 'r' );
   sendDatagram( near_, 'o' );
   neighbor.heardUntilIs( []( std::string const & frame ) { return frame.back() == 'r'; } );

   auto const frames = framesOf( read() );
   ASSERT_EQ( frames.size(), 1 );
   EXPECT_EQ( frames[ 0 ].back(), 'o' );
}

TEST_P( CopiesTest, OnlyTheDevicesThatAreNamedAreCopied ) {
   device( "et2", "far2" );
   PacketSocket first( near_, "et1" );
   PacketSocket second( near_, "et2" );
   EXPECT_TRUE( first.send( lldp( 1 ) ) );
   EXPECT_TRUE( second.send( lldp( 2 ) ) );
   EXPECT_THAT( framesOf( read() ), ElementsAre( lldp( 1 ) ) );

   copies_->deviceIs( number_, near_.index( "et2" ) );
   copies_->deviceDel( number_, near_.index( "et1" ) );
   copies_->deviceDel( number_, near_.index( "et1" ) );

   EXPECT_TRUE( first.send( lldp( 3 ) ) );
   EXPECT_TRUE( second.send( lldp( 4 ) ) );
   auto const all = read();
   ASSERT_THAT( framesOf( all ), ElementsAre( lldp( 4 ) ) );
   EXPECT_EQ( all[ 0 ].speaker.ifindex, near_.index( "et2" ) );
}

TEST_P( CopiesTest, AllNamespacesShareTheRing ) {
   TestNetNs const other;
   TestNetNs const otherFar;
   isQuiet( other );
   other.veth( "et1", otherFar, "far1" );
   filters_->attach( number_ + 1, NetNsDirectories().open( other.name() ), other.index( "et1" ) );
   copies_->deviceIs( number_ + 1, other.index( "et1" ) );
   PacketSocket here( near_, "et1" );
   PacketSocket there( other, "et1" );

   EXPECT_TRUE( there.send( lldp( 1 ) ) );
   EXPECT_TRUE( here.send( lldp( 1 ) ) );

   auto const all = read();
   ASSERT_EQ( all.size(), 2 );
   EXPECT_EQ( all[ 0 ].speaker.filter, number_ + 1 );
   EXPECT_EQ( all[ 1 ].speaker.filter, number_ );
}

TEST_P( CopiesTest, ReadingKeepsItsBudget ) {
   PacketSocket daemon( near_, "et1" );
   EXPECT_FALSE( readable() );
   for ( int i = 1; i <= 5; ++i ) {
      EXPECT_TRUE( daemon.send( lldp( i ) ) );
   }

   EXPECT_TRUE( becomesReadable() );
   EXPECT_THAT( read( 0 ), IsEmpty() );
   EXPECT_THAT( framesOf( read( 2 ) ), ElementsAre( lldp( 1 ), lldp( 2 ) ) );
   EXPECT_TRUE( readable() );
   EXPECT_THAT( framesOf( read( 2 ) ), ElementsAre( lldp( 3 ), lldp( 4 ) ) );
   EXPECT_THAT( framesOf( read( 2 ) ), ElementsAre( lldp( 5 ) ) );
   EXPECT_FALSE( readable() );

   // After a ring that was read empty, the next frame is announced again.
   EXPECT_TRUE( daemon.send( lldp( 6 ) ) );
   EXPECT_TRUE( becomesReadable() );
   EXPECT_THAT( framesOf( read( 2 ) ), ElementsAre( lldp( 6 ) ) );
}

TEST_P( CopiesTest, AnExceptionEndsTheReading ) {
   PacketSocket daemon( near_, "et1" );
   EXPECT_TRUE( daemon.send( lldp( 1 ) ) );
   EXPECT_TRUE( daemon.send( lldp( 2 ) ) );

   EXPECT_THROW( copies_->read( 9, []( Copy const & ) { throw std::runtime_error( "no" ); } ),
                 std::runtime_error );

   EXPECT_THAT( framesOf( read() ), ElementsAre( lldp( 2 ) ) );
}

TEST_P( CopiesTest, LongerFramesAreCounted ) {
   PacketSocket daemon( near_, "et1" );

   EXPECT_TRUE( daemon.send( longLldp( 1, EGRESS_LONGEST + 1 ) ) );

   EXPECT_THAT( read(), IsEmpty() );
   EXPECT_EQ( copies_->lost().tooLong, 1 );
}

TEST_P( CopiesTest, AFullRingIsCounted ) {
   constexpr std::size_t sent = EGRESS_RING / EGRESS_LONGEST + 100;
   static_assert( sent < EGRESS_COPIES_A_SECOND );
   PacketSocket daemon( near_, "et1" );
   for ( std::size_t i = 0; i < sent; ++i ) {
      EXPECT_TRUE( daemon.send( longLldp( static_cast< int >( i % 100 ), EGRESS_LONGEST ) ) );
   }

   auto const full = copies_->lost().full;
   EXPECT_GE( full, 100 );
   EXPECT_LT( full, sent );
   auto const all = read();
   EXPECT_EQ( all.size(), sent - full ); // the oldest
   for ( std::size_t i = 0; i < all.size(); ++i ) {
      ASSERT_EQ( all[ i ].frame, longLldp( static_cast< int >( i % 100 ), EGRESS_LONGEST ) ) << i;
   }

   EXPECT_TRUE( daemon.send( lldp( 1 ) ) ); // there is room again
   EXPECT_THAT( framesOf( read() ), ElementsAre( lldp( 1 ) ) );
   EXPECT_EQ( copies_->lost().full, full );
}

TEST_P( CopiesTest, AFloodIsLimitedByProtocolAndDevice ) {
   constexpr U64 sent = 2 * EGRESS_COPIES_A_SECOND;
   device( "et2", "far2" );
   copies_->deviceIs( number_, near_.index( "et2" ) );
   PacketSocket flooded( near_, "et1" );
   PacketSocket quiet( near_, "et2" );
   auto const begin = std::chrono::steady_clock::now();
   for ( U64 i = 0; i < sent; ++i ) {
      EXPECT_TRUE( flooded.send( lldp( 1 ) ) );
   }
   auto const seconds = ( std::chrono::steady_clock::now() - begin ) / 1s + 1;

   auto const copied = read().size();
   EXPECT_GE( copied, EGRESS_COPIES_A_SECOND );
   EXPECT_LE( copied, EGRESS_COPIES_A_SECOND * seconds );
   EXPECT_EQ( copied + copies_->lost().limited, sent );

   EXPECT_TRUE( quiet.send( lldp( 2 ) ) );
   EXPECT_TRUE( flooded.send( rip( "192.0.2.1" ) ) );
   EXPECT_THAT( framesOf( read() ), ElementsAre( lldp( 2 ), rip( "192.0.2.1" ) ) );

   // The second ends.
   auto const end = std::chrono::steady_clock::now() + 5s;
   while ( read().empty() ) {
      ASSERT_LT( std::chrono::steady_clock::now(), end );
      std::this_thread::sleep_for( 10ms );
      EXPECT_TRUE( flooded.send( lldp( 3 ) ) );
   }
}

INSTANTIATE_TEST_SUITE_P( Hooks, CopiesTest, ::testing::Values( Hook::tcx, Hook::clsact ),
                          []( auto const & hook ) {
                             return hook.param == Hook::tcx ? "Tcx" : "Clsact";
                          } );

} // namespace

} // namespace Egress
