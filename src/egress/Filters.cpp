#include "egress/Filters.h"

#include <Egress.skel.h>
#include <algorithm>
#include <array>
#include <bpf/bpf.h>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <fcntl.h>

namespace Egress {

namespace {

using Valen::Linux::Fd;
using Valen::Linux::NetNs;
using Valen::Linux::NetNsScope;

// Identify the filter of valend in a clsact.
constexpr U32 priority = 0x5641;
constexpr U32 handle = 1;

// BPF_TCX_EGRESS, which the headers of libbpf 1.1 do not have.
constexpr auto tcxEgress = static_cast< bpf_attach_type >( 47 );

// The maps that all programs have in common; `drafts`, the last, is the filters' own.
enum : std::size_t { mutesMap, ringMap, devicesMap, lossesMap };

// What libbpf last complained about, which is more than an errno says.
thread_local std::string complaint;

int keepComplaint( libbpf_print_level level, char const * format, va_list arguments ) {
   if ( level == LIBBPF_WARN ) {
      std::array< char, 512 > text{};
      std::vsnprintf( text.data(), text.size(), format, arguments );
      complaint = text.data();
      while ( !complaint.empty() && complaint.back() == '\n' ) {
         complaint.pop_back();
      }
   }
   return 0;
}

[[noreturn]] void fail( std::string const & what, int number ) {
   std::string text = what + ": " + Valen::Linux::errorText( number );
   if ( number == EPERM ) {
      text += "; it needs CAP_NET_ADMIN, and CAP_BPF or CAP_SYS_ADMIN";
   } else if ( !complaint.empty() ) {
      text += " (" + complaint + ")";
   }
   throw Quill::ErrnoException( text, number );
}

Fd copyOf( int descriptor ) {
   return Valen::Linux::requireFd( ::fcntl( descriptor, F_DUPFD_CLOEXEC, 0 ),
                                   "cannot copy a descriptor" );
}

std::string deviceText( U32 ifIndex ) {
   return "the device with the index " + std::to_string( ifIndex );
}

bpf_tc_hook egressOf( U32 ifIndex ) {
   bpf_tc_hook hook{};
   hook.sz = sizeof hook;
   hook.ifindex = static_cast< int >( ifIndex );
   hook.attach_point = BPF_TC_EGRESS;
   return hook;
}

bpf_tc_opts ours() {
   bpf_tc_opts options{};
   options.sz = sizeof options;
   options.handle = handle;
   options.priority = priority;
   return options;
}

void attachToClsact( int program, U32 ifIndex ) {
   auto hook = egressOf( ifIndex );
   int error = -::bpf_tc_hook_create( &hook );
   if ( error != 0 && error != EEXIST ) {
      fail( "cannot make the qdisc clsact of " + deviceText( ifIndex ), error );
   }
   auto options = ours();
   options.prog_fd = program;
   options.flags = BPF_TC_F_REPLACE;
   error = -::bpf_tc_attach( &hook, &options );
   if ( error != 0 ) {
      fail( "cannot attach a filter to " + deviceText( ifIndex ), error );
   }
}

// Whether or not there is one.
void detachFromClsact( U32 ifIndex ) {
   complaint.clear();
   auto const hook = egressOf( ifIndex );
   auto const options = ours();
   int const error = -::bpf_tc_detach( &hook, &options );
   // ENOENT: no filter; EINVAL: no clsact; ENODEV: no device.
   if ( error != 0 && error != ENOENT && error != EINVAL && error != ENODEV ) {
      fail( "cannot remove the filter of " + deviceText( ifIndex ), error );
   }
}

} // namespace

void Filters::Unload::operator()( valen_filter * filter ) const noexcept {
   valen_filter::destroy( filter );
}

Filters::Filters( Hook best, std::size_t mostByTcx ) : hook_( best ), mostByTcx_( mostByTcx ) {
   ::libbpf_set_print( keepComplaint );
}

Filters::~Filters() = default;

Fd Filters::map( std::size_t which ) {
   if ( !maps_[ which ] ) {
      namespaceOf( 0 );
   }
   return copyOf( maps_[ which ].get() );
}

Fd Filters::mutes() {
   return map( mutesMap );
}

CopyMaps Filters::copies() {
   return { map( ringMap ), map( devicesMap ), map( lossesMap ) };
}

// The first program makes the maps; the others use them.
Filters::Program Filters::loaded( U32 number ) {
   complaint.clear();
   Program program( valen_filter::open() );
   if ( !program ) {
      fail( "cannot read the egress filter", errno );
   }
   program->rodata->filter_number = number;
   auto const & maps = program->maps;
   std::array< bpf_map *, commonMaps > const common{ maps.mutes, maps.copies, maps.devices,
                                                     maps.losses, maps.drafts };
   int error = 0;
   for ( std::size_t i = 0; i < common.size() && error == 0 && maps_[ i ]; ++i ) {
      error = -::bpf_map__reuse_fd( common[ i ], maps_[ i ].get() );
   }
   if ( error == 0 ) {
      error = -valen_filter::load( program.get() );
   }
   if ( error != 0 ) {
      fail( "the kernel does not accept the egress filter", error );
   }
   if ( !maps_.front() ) {
      std::transform( common.begin(), common.end(), maps_.begin(),
                      []( bpf_map * map ) { return copyOf( ::bpf_map__fd( map ) ); } );
   }
   return program;
}

Filters::Namespace & Filters::namespaceOf( U32 number ) {
   auto const found = namespaces_.find( number );
   if ( found != namespaces_.end() ) {
      return found->second;
   }
   return namespaces_.emplace( number, Namespace{ loaded( number ), {} } ).first->second;
}

Hook Filters::attach( U32 number, NetNs const & netNs, U32 ifIndex ) {
   auto & in = namespaceOf( number );
   auto const known = in.devices.find( ifIndex );
   if ( known != in.devices.end() ) {
      return known->second.hook;
   }
   NetNsScope const inside( netNs );
   auto const program = ::bpf_program__fd( in.program->progs.valen_egress );
   return in.devices.emplace( ifIndex, attachTo( program, ifIndex ) ).first->second.hook;
}

Filters::Attached Filters::attachTo( int program, U32 ifIndex ) {
   complaint.clear();
   if ( hook_ == Hook::tcx && byTcx_ < mostByTcx_ ) {
      int const link =
         ::bpf_link_create( program, static_cast< int >( ifIndex ), tcxEgress, nullptr );
      if ( link >= 0 ) {
         Attached attached{ Hook::tcx, Fd( link ) };
         // A previous process had more devices, or saw them in another order.
         detachFromClsact( ifIndex );
         ++byTcx_;
         return attached;
      }
      if ( errno != EINVAL ) {
         fail( "cannot attach a filter to " + deviceText( ifIndex ), errno );
      }
      hook_ = Hook::clsact; // this kernel has no tcx
   }
   attachToClsact( program, ifIndex );
   return { Hook::clsact, Fd() };
}

void Filters::detach( U32 number, NetNs const & netNs, U32 ifIndex ) {
   auto const in = namespaces_.find( number );
   auto const known = in == namespaces_.end() ? decltype( in->second.devices.begin() ){}
                                              : in->second.devices.find( ifIndex );
   if ( in == namespaces_.end() || known == in->second.devices.end() ) {
      return;
   }
   if ( known->second.hook == Hook::clsact ) {
      NetNsScope const inside( netNs );
      detachFromClsact( ifIndex );
   }
   erase( in->second, known );
}

void Filters::forget( U32 number, U32 ifIndex ) {
   if ( auto const in = namespaces_.find( number ); in != namespaces_.end() ) {
      if ( auto const device = in->second.devices.find( ifIndex );
           device != in->second.devices.end() ) {
         erase( in->second, device );
      }
   }
}

void Filters::forget( U32 number ) {
   if ( auto const in = namespaces_.find( number ); in != namespaces_.end() ) {
      while ( !in->second.devices.empty() ) {
         erase( in->second, in->second.devices.begin() );
      }
      namespaces_.erase( in );
   }
}

void Filters::erase( Namespace & in, std::map< U32, Attached >::iterator device ) {
   byTcx_ -= device->second.hook == Hook::tcx;
   in.devices.erase( device );
}

} // namespace Egress
