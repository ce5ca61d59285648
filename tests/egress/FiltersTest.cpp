#include "egress/Filters.h"
#include "egress/Mutes.h"
#include "tests/linux/TestNetwork.h"

#include <array>
#include <bpf/bpf.h>
#include <linux/bpf.h>
#include <thread>

namespace Egress {

namespace {

using namespace std::chrono_literals;
using Valen::Linux::Fd;
using Valen::Linux::NetNs;
using Valen::Linux::NetNsDirectories;
using Valen::Linux::NetNsScope;
using Valen::Test::TestNetNs;

std::string bytes( std::initializer_list< int > values ) {
   return std::string( values.begin(), values.end() );
}

// An LLDPDU of the port with that number, with the time to live.
std::string lldp( int port, int ttl = 120 ) {
   return bytes( { 1, 0x80, 0xc2, 0, 0, 0x0e, 2, 0, 0, 0, 0, 1, 0x88, 0xcc } ) +
          bytes( { 2, 7, 4, 2, 0, 0, 0, 0, 1, 4, 3, 7, 'p', port, 6, 2, 0, ttl, 0, 0 } );
}

class PacketSocket {
 public:
   PacketSocket( TestNetNs const & netNs, std::string const & device )
       : ifIndex_( netNs.index( device ) ) {
      auto const opened = NetNsDirectories().open( netNs.name() );
      NetNsScope const inside( opened );
      fd_ = Valen::Linux::requireFd(
         ::socket( AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons( ETH_P_ALL ) ), "socket" );
      sockaddr_ll address{};
      address.sll_family = AF_PACKET;
      address.sll_protocol = htons( ETH_P_ALL );
      address.sll_ifindex = static_cast< int >( ifIndex_ );
      if ( ::bind( fd_.get(), reinterpret_cast< sockaddr * >( &address ), sizeof address ) < 0 ) {
         Valen::Linux::throwErrno( "bind", errno );
      }
   }

   void markIs( U32 mark ) {
      if ( ::setsockopt( fd_.get(), SOL_SOCKET, SO_MARK, &mark, sizeof mark ) < 0 ) {
         Valen::Linux::throwErrno( "SO_MARK", errno );
      }
   }
   // Whether the kernel reported success.
   bool send( std::string const & frame ) {
      return ::send( fd_.get(), frame.data(), frame.size(), 0 ) ==
             static_cast< ssize_t >( frame.size() );
   }
   // All frames up to `last`, which is expected; those that the kernel sends on its own are left out.
   std::vector< std::string > heardUntil( std::string const & last ) {
      std::vector< std::string > frames;
      pollfd ready{ fd_.get(), POLLIN, 0 };
      while ( ::poll( &ready, 1, 2000 ) > 0 ) {
         std::string frame( 2000, '\0' );
         sockaddr_ll from{};
         socklen_t size = sizeof from;
         auto const length = ::recvfrom( fd_.get(), frame.data(), frame.size(), 0,
                                         reinterpret_cast< sockaddr * >( &from ), &size );
         frame.resize( length > 0 ? static_cast< std::size_t >( length ) : 0 );
         if ( from.sll_pkttype == PACKET_OUTGOING || frame.substr( 12, 2 ) == "\x86\xdd" ) {
            continue;
         }
         frames.push_back( frame );
         if ( frame == last ) {
            return frames;
         }
      }
      ADD_FAILURE() << "the last frame was not received";
      return frames;
   }

 private:
   U32 const ifIndex_;
   Fd fd_;
};

class FiltersTest : public ::testing::TestWithParam< Hook > {
 protected:
   FiltersTest() {
      near_.veth( "et1", far_, "far1" );
      attach();
   }

   void attach() {
      EXPECT_EQ( filters_.attach( number_, netNs(), near_.index( "et1" ) ), GetParam() );
   }
   NetNs netNs() const { return NetNsDirectories().open( near_.name() ); }
   Speaker speaker( std::string const & frame ) const {
      return speakerOf( frame, number_, near_.index( "et1" ) ).value();
   }
   void mute( std::string const & frame, std::chrono::milliseconds time = 1min ) {
      mutes_.mute( speaker( frame ), std::chrono::steady_clock::now() + time );
   }

   static constexpr U32 number_ = 7;
   TestNetNs const near_;
   TestNetNs const far_;
   Filters filters_{ GetParam() };
   Mutes mutes_{ filters_.mutes() };
};

TEST_P( FiltersTest, OnlyTheMutedSpeakerIsSilent ) {
   PacketSocket daemon( near_, "et1" );
   PacketSocket neighbor( far_, "far1" );
   auto const data = Valen::Test::testFrame( "data" );

   mute( lldp( 1, 0 ) );

   EXPECT_TRUE( daemon.send( lldp( 1 ) ) ); // the daemon does not notice
   EXPECT_TRUE( daemon.send( lldp( 2 ) ) );
   EXPECT_TRUE( daemon.send( data ) );
   EXPECT_EQ( neighbor.heardUntil( data ), ( std::vector{ lldp( 2 ), data } ) );
}

TEST_P( FiltersTest, OwnFramesPass ) {
   PacketSocket valend( near_, "et1" );
   PacketSocket neighbor( far_, "far1" );
   mute( lldp( 1 ) );

   valend.markIs( EGRESS_OWN_MARK );

   EXPECT_TRUE( valend.send( lldp( 1, 0 ) ) );
   EXPECT_EQ( neighbor.heardUntil( lldp( 1, 0 ) ).size(), 1 );
}

TEST_P( FiltersTest, AnUnmutedSpeakerIsHeardAndItsFramesWereCounted ) {
   PacketSocket daemon( near_, "et1" );
   PacketSocket neighbor( far_, "far1" );
   mute( lldp( 1 ) );
   EXPECT_TRUE( daemon.send( lldp( 1, 11 ) ) );
   EXPECT_TRUE( daemon.send( lldp( 1, 12 ) ) );

   EXPECT_EQ( mutes_.unmute( speaker( lldp( 1 ) ) ), 2 );
   EXPECT_EQ( mutes_.unmute( speaker( lldp( 1 ) ) ), 0 );

   EXPECT_TRUE( daemon.send( lldp( 1, 13 ) ) );
   EXPECT_EQ( neighbor.heardUntil( lldp( 1, 13 ) ), std::vector{ lldp( 1, 13 ) } );
}

TEST_P( FiltersTest, AMuteOpensByItselfAtItsEnd ) {
   PacketSocket daemon( near_, "et1" );
   PacketSocket neighbor( far_, "far1" );
   auto const end = std::chrono::steady_clock::now() + 300ms;
   mutes_.mute( speaker( lldp( 1 ) ), end );
   EXPECT_TRUE( daemon.send( lldp( 1, 11 ) ) );

   std::this_thread::sleep_until( end );

   EXPECT_TRUE( daemon.send( lldp( 1, 12 ) ) );
   EXPECT_EQ( neighbor.heardUntil( lldp( 1, 12 ) ), std::vector{ lldp( 1, 12 ) } );
}

// A VLAN device puts its tag beside the bytes. Does the same with the packets that have the mark, before any other
// filter; the kernel of a test may have no VLAN devices.
class Tagging {
 public:
   static constexpr U32 mark = 1234;

   Tagging( TestNetNs const & netNs, std::string const & device, int vlan ) {
      std::array< bpf_insn, 7 > const code{ {
         { BPF_LDX | BPF_MEM | BPF_W, BPF_REG_2, BPF_REG_1, offsetof( __sk_buff, mark ), 0 },
         { BPF_JMP | BPF_JNE | BPF_K, BPF_REG_2, 0, 3, mark },
         { BPF_ALU64 | BPF_MOV | BPF_K, BPF_REG_2, 0, 0, htons( ETH_P_8021Q ) },
         { BPF_ALU64 | BPF_MOV | BPF_K, BPF_REG_3, 0, 0, vlan },
         { BPF_JMP | BPF_CALL, 0, 0, 0, BPF_FUNC_skb_vlan_push },
         { BPF_ALU64 | BPF_MOV | BPF_K, BPF_REG_0, 0, 0, -1 },
         { BPF_JMP | BPF_EXIT, 0, 0, 0, 0 },
      } };
      Fd const program( ::bpf_prog_load( BPF_PROG_TYPE_SCHED_CLS, "tagging", "GPL", code.data(),
                                         code.size(), nullptr ) );
      auto const index = static_cast< int >( netNs.index( device ) );
      auto const opened = NetNsDirectories().open( netNs.name() );
      NetNsScope const inside( opened );
      link_ = Valen::Linux::requireFd(
         ::bpf_link_create( program.get(), index, static_cast< bpf_attach_type >( 47 ), nullptr ),
         "tcx" );
   }

 private:
   Fd link_;
};

TEST_P( FiltersTest, ATaggedSpeakerIsAnother ) {
   near_.veth( "et2", far_, "far2" );
   Tagging const tagging( near_, "et2", 10 );
   auto const index = near_.index( "et2" );
   filters_.attach( number_, netNs(), index );
   PacketSocket untagged( near_, "et2" );
   PacketSocket tagged( near_, "et2" );
   tagged.markIs( Tagging::mark );
   PacketSocket neighbor( far_, "far2" );
   auto goodbye = lldp( 1, 0 );
   goodbye.insert( 12, bytes( { 0x81, 0, 0, 10 } ) );

   mutes_.mute( speakerOf( goodbye, number_, index ).value(),
                std::chrono::steady_clock::now() + 1min );

   EXPECT_TRUE( tagged.send( lldp( 1, 11 ) ) );
   EXPECT_TRUE( tagged.send( lldp( 2, 12 ) ) );
   EXPECT_TRUE( untagged.send( lldp( 1, 13 ) ) );
   EXPECT_EQ( neighbor.heardUntil( lldp( 1, 13 ) ),
              ( std::vector{ lldp( 2, 12 ), lldp( 1, 13 ) } ) );
}

TEST_P( FiltersTest, AFilterThatIsDetachedDropsNothing ) {
   PacketSocket daemon( near_, "et1" );
   PacketSocket neighbor( far_, "far1" );
   mute( lldp( 1 ) );

   filters_.detach( number_, netNs(), near_.index( "et1" ) );
   filters_.detach( number_, netNs(), near_.index( "et1" ) );

   EXPECT_TRUE( daemon.send( lldp( 1 ) ) );
   neighbor.heardUntil( lldp( 1 ) );
   attach();
   EXPECT_TRUE( daemon.send( lldp( 1, 11 ) ) );
   EXPECT_TRUE( daemon.send( lldp( 2 ) ) );
   EXPECT_EQ( neighbor.heardUntil( lldp( 2 ) ), std::vector{ lldp( 2 ) } );
}

TEST_P( FiltersTest, NamespacesAreToldApart ) {
   TestNetNs const other;
   TestNetNs const otherFar;
   // The same index as that of et1.
   auto const index = std::to_string( near_.index( "et1" ) );
   other.ip( "link add et1 index " + index + " type veth peer name far1 netns " + otherFar.text() );
   otherFar.ip( "link set far1 up" );
   other.ip( "link set et1 up" );
   filters_.attach( number_ + 1, NetNsDirectories().open( other.name() ), near_.index( "et1" ) );
   PacketSocket daemon( other, "et1" );
   PacketSocket neighbor( otherFar, "far1" );

   mute( lldp( 1 ) );

   EXPECT_TRUE( daemon.send( lldp( 1 ) ) );
   neighbor.heardUntil( lldp( 1 ) );
}

TEST_P( FiltersTest, ADeviceThatDoesNotExistIsSaid ) {
   try {
      filters_.attach( number_, netNs(), 12345 );
      ADD_FAILURE() << "attached";
   } catch ( Quill::ErrnoException const & error ) {
      EXPECT_EQ( error.number(), ENODEV ) << error.text();
      EXPECT_NE( error.text().find( "the device with the index 12345" ), std::string::npos )
         << error.text();
   }
}

INSTANTIATE_TEST_SUITE_P( Hooks, FiltersTest, ::testing::Values( Hook::tcx, Hook::clsact ),
                          []( auto const & hook ) {
                             return hook.param == Hook::tcx ? "Tcx" : "Clsact";
                          } );

TEST( FiltersLeftTest, WhatAPreviousProcessLeftIsRemoved ) {
   TestNetNs const near;
   TestNetNs const far;
   near.veth( "et1", far, "far1" );
   auto const netNs = NetNsDirectories().open( near.name() );
   auto const index = near.index( "et1" );
   auto const left = [ & ] {
      return std::system( ( "tc -n " + near.text() + " filter show dev et1 egress | grep -q valen" )
                             .c_str() ) == 0;
   };
   {
      Filters filters( Hook::clsact );
      filters.attach( 1, netNs, index );
   }
   EXPECT_TRUE( left() );

   Filters::removeLeft( netNs, index );
   EXPECT_FALSE( left() );
   Filters::removeLeft( netNs, index );
}

} // namespace

} // namespace Egress
