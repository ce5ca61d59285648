// What the egress filter adds to sending data: frames of 64 bytes through a device whose control frames are
// copied, compared to the same without a filter, and with one that does nothing.
#include "Devices.h"
#include "Paired.h"
#include "egress/Copies.h"

#include <arpa/inet.h>
#include <array>
#include <bpf/bpf.h>
#include <bpf/libbpf.h>
#include <cerrno>
#include <cstdlib>
#include <linux/bpf.h>
#include <optional>
#include <stdexcept>
#include <sys/socket.h>

namespace Valen::Bench {

namespace {

using Egress::Hook;

constexpr U32 sends = 2000;
constexpr std::size_t frameBytes = 64;
constexpr double bound = 1.08; // of data by a socket, with the filter / without

void run( char const * command ) {
   if ( std::system( command ) != 0 ) {
      throw std::runtime_error( std::string( "command failed: " ) + command );
   }
}

// The other end gets the frames and drops them: they are for another station.
void makeNeighbor() {
   run( "ip address replace 192.0.2.1/24 dev e0" );
   run( "ip neighbor replace 192.0.2.2 lladdr 02:00:00:00:00:02 dev e0 nud permanent" );
}

// Sends datagrams to a port of data.
class Udp {
 public:
   Udp()
       : socket_(
            Linux::requireFd( ::socket( AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0 ), "socket" ) ) {
      sockaddr_in to{};
      to.sin_family = AF_INET;
      to.sin_port = htons( 40000 );
      ::inet_pton( AF_INET, "192.0.2.2", &to.sin_addr );
      if ( ::connect( socket_.get(), reinterpret_cast< sockaddr * >( &to ), sizeof to ) < 0 ) {
         Linux::throwErrno( "connect", errno );
      }
   }

   void send() const {
      static std::string const payload( frameBytes - 42, 'd' ); // without Ethernet, IPv4 and UDP
      if ( ::send( socket_.get(), payload.data(), payload.size(), 0 ) < 0 ) {
         Linux::throwErrno( "send", errno );
      }
   }

 private:
   Linux::Fd socket_;
};

// Sends frames as TCP does.
class Tcp {
 public:
   void send() const {
      static std::string const frame = segment();
      sender_.send( frame, device_ );
   }

 private:
   static std::string segment() {
      std::string frame( "\x02\0\0\0\0\x02\x02\0\0\0\0\x01\x08\0\x45\0\0\x32\0\0\x40\0\x40\x06",
                         24 );
      frame.resize( frameBytes, 'd' );
      return frame;
   }

   BareSender const sender_;
   U32 const device_ = deviceIndex( "e0" );
};

// A way to have a filter on e0 for a while.
class Attachment {
 public:
   explicit Attachment( Hook hook ) : hook_( hook ) {}
   virtual ~Attachment() = default;

   virtual void attach() = 0;
   // No clsact is left either.
   void detach() {
      detachFilter();
      if ( hook_ == Hook::clsact ) {
         run( "tc qdisc del dev e0 clsact" );
      }
   }

 protected:
   virtual void detachFilter() = 0;

   Hook const hook_;
   U32 const device_ = deviceIndex( "e0" );
};

class EgressFilter final : public Attachment {
 public:
   explicit EgressFilter( Hook hook )
       : Attachment( hook ), filters_( hook ), copies_( filters_.copies() ) {
      copies_.deviceIs( number, device_ );
   }

   void attach() override {
      if ( filters_.attach( number, netNs_, device_ ) != hook_ ) {
         throw std::runtime_error( "this kernel has no tcx" );
      }
   }

 private:
   static constexpr U32 number = 1;

   void detachFilter() override { filters_.detach( number, netNs_, device_ ); }

   Linux::NetNs const netNs_{ "default", {}, {} };
   Egress::Filters filters_;
   Egress::Copies copies_;
};

// Passes every frame.
class EmptyFilter final : public Attachment {
 public:
   explicit EmptyFilter( Hook hook ) : Attachment( hook ) {
      std::array< bpf_insn, 2 > const code{ {
         { BPF_ALU64 | BPF_MOV | BPF_K, BPF_REG_0, 0, 0, -1 },
         { BPF_JMP | BPF_EXIT, 0, 0, 0, 0 },
      } };
      program_ = Linux::requireFd( ::bpf_prog_load( BPF_PROG_TYPE_SCHED_CLS, "empty", "GPL",
                                                    code.data(), code.size(), nullptr ),
                                   "bpf_prog_load" );
   }

   void attach() override {
      auto const index = static_cast< int >( device_ );
      if ( hook_ == Hook::tcx ) {
         auto const tcxEgress = static_cast< bpf_attach_type >( 47 ); // not in libbpf 1.1
         link_ = Linux::requireFd( ::bpf_link_create( program_.get(), index, tcxEgress, nullptr ),
                                   "tcx" );
         return;
      }
      bpf_tc_hook hook{};
      hook.sz = sizeof hook;
      hook.ifindex = index;
      hook.attach_point = BPF_TC_EGRESS;
      bpf_tc_opts options{};
      options.sz = sizeof options;
      options.prog_fd = program_.get();
      if ( ::bpf_tc_hook_create( &hook ) != 0 || ::bpf_tc_attach( &hook, &options ) != 0 ) {
         Linux::throwErrno( "clsact", errno );
      }
   }

 private:
   void detachFilter() override { link_ = Linux::Fd(); }

   Linux::Fd program_;
   Linux::Fd link_;
};

// No filter.
class NoFilter final : public Attachment {
 public:
   NoFilter() : Attachment( Hook::tcx ) {}
   void attach() override {}

 private:
   void detachFilter() override {}
};

template < class Sender > double timeWith( Attachment & attachment, Sender const & sender ) {
   attachment.attach();
   sender.send(); // what was changed is in the caches again
   auto const time = timeOf( [ & ] {
      for ( U32 i = 0; i < sends; ++i ) {
         sender.send();
      }
   } );
   attachment.detach();
   return time;
}

template < class Sender >
void compare( benchmark::State & state, Attachment & subject, Attachment & bare,
              std::optional< double > most ) {
   Sender const sender;
   Paired paired( sends, sends );
   bool subjectFirst = false;
   for ( auto _ : state ) {
      subjectFirst = !subjectFirst;
      auto bareTime = subjectFirst ? 0 : timeWith( bare, sender );
      auto const subjectTime = timeWith( subject, sender );
      if ( subjectFirst ) {
         bareTime = timeWith( bare, sender );
      }
      paired.turnIs( state, subjectTime, bareTime );
   }
   paired.report( state, most );
}

std::string nameOf( Hook hook ) {
   return hook == Hook::tcx ? "tcx" : "clsact";
}

template < class Sender >
void againstNone( benchmark::State & state, char const * protocol, Hook hook,
                  std::optional< double > most ) {
   makeVethPair();
   makeNeighbor();
   EgressFilter subject( hook );
   NoFilter bare;
   compare< Sender >( state, subject, bare, most );
   state.SetLabel( std::string( protocol ) + " of 64 B over veth with the egress filter by " +
                   nameOf( hook ) + " / without" );
}

void udp( benchmark::State & state, Hook hook ) {
   againstNone< Udp >( state, "UDP", hook, bound );
}

// What the kernel does for any filter of a clsact exceeds the bound: see emptyTcp().
void tcp( benchmark::State & state, Hook hook ) {
   againstNone< Tcp >( state, "TCP", hook,
                       hook == Hook::tcx ? std::optional( bound ) : std::nullopt );
}

void emptyTcp( benchmark::State & state, Hook hook ) {
   makeVethPair();
   makeNeighbor();
   EmptyFilter subject( hook );
   NoFilter bare;
   compare< Tcp >( state, subject, bare, std::nullopt );
   state.SetLabel( "TCP of 64 B over veth with an empty filter by " + nameOf( hook ) +
                   " / without" );
}

void tcpAgainstEmpty( benchmark::State & state, Hook hook ) {
   makeVethPair();
   makeNeighbor();
   EgressFilter subject( hook );
   EmptyFilter bare( hook );
   compare< Tcp >( state, subject, bare, 1.03 );
   state.SetLabel( "TCP of 64 B over veth with the egress filter by " + nameOf( hook ) +
                   " / with an empty filter" );
}

#define EGRESS_COST( function )                                                                    \
   BENCHMARK_CAPTURE( function, tcx, Hook::tcx )->Iterations( 100 )->UseManualTime();              \
   BENCHMARK_CAPTURE( function, clsact, Hook::clsact )->Iterations( 100 )->UseManualTime()

EGRESS_COST( udp );
EGRESS_COST( tcp );
EGRESS_COST( emptyTcp );
EGRESS_COST( tcpAgainstEmpty );

} // namespace
} // namespace Valen::Bench
