// What the tests of filters send, and what their neighbors hear.
#pragma once

#include "tests/linux/TestNetwork.h"

#include <array>
#include <bpf/bpf.h>
#include <cstddef>
#include <initializer_list>
#include <linux/bpf.h>

namespace Egress::Test {

using Valen::Linux::Fd;
using Valen::Linux::NetNsDirectories;
using Valen::Linux::NetNsScope;
using Valen::Test::TestNetNs;

inline std::string bytes( std::initializer_list< int > values ) {
   return std::string( values.begin(), values.end() );
}

// An LLDPDU of the port with that number, with the time to live.
inline std::string lldp( int port, int ttl = 120 ) {
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
      return heardUntilIs( [ & ]( std::string const & frame ) { return frame == last; } );
   }
   template < class IsLast > std::vector< std::string > heardUntilIs( IsLast const & isLast ) {
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
         if ( isLast( frame ) ) {
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

} // namespace Egress::Test
