// The filters at the egress of devices, by which speakers are muted and their frames are copied: see Egress.bpf.c.
// A filter goes away with the process, or opens by itself at the end of each mute.
//
// For one thread, which may have to wait: the kernel attaches a filter under its lock for changes of the network
// (rtnl). Linux 5.10 and later. Needs CAP_NET_ADMIN, and CAP_BPF or CAP_SYS_ADMIN.
#pragma once

#include "linux/NetNs.h"

#include <array>
#include <map>
#include <memory>
#include <string>

struct valen_filter;

namespace Egress {

// How a filter is attached: tcx since Linux 6.6; before, as a filter of the qdisc clsact. That is made if the
// device has none, and stays, since frames are lost while it is made or removed.
//
// To attach or detach a filter by tcx, the kernel waits for a grace period of RCU, some 15 ms, in which no link can be
// changed; and it detaches those of a process that ends before the next one can begin. So tcx is for few devices.
enum class Hook : U8 { tcx, clsact };

// The maps that Copies needs.
struct CopyMaps {
   Valen::Linux::Fd ring;
   Valen::Linux::Fd devices;
   Valen::Linux::Fd losses;
};

class Filters {
 public:
   // The program is loaded for the first device. With `clsact`, tcx is not tried.
   //   mostByTcx   devices; others get their filter by clsact
   explicit Filters( Hook best = Hook::tcx, std::size_t mostByTcx = 32 );
   ~Filters(); // detaches all filters, the process's own namespace being entered
   Filters( Filters const & ) = delete;
   Filters & operator=( Filters const & ) = delete;

   // A descriptor of the map of all muted speakers, for Mutes. Throws Quill::ErrnoException, with the reason of
   // the kernel, if the map cannot be made.
   Valen::Linux::Fd mutes();
   // The same of what copied frames need.
   CopyMaps copies();

   // Loads the program of a namespace, if that was not done. Throws Quill::ErrnoException with the reason.
   void load( U32 number ) { namespaceOf( number ); }
   // Attaches the filter to a device. No effect if that was done. Replaces one that a previous process left.
   // Throws Quill::ErrnoException: ENODEV if there is no such device.
   //   number   identifies the namespace among all that have filters
   Hook attach( U32 number, Valen::Linux::NetNs const & netNs, U32 ifIndex );
   // Detaches it. No effect if it is not attached. Throws Quill::ErrnoException if the filter may still be there.
   void detach( U32 number, Valen::Linux::NetNs const & netNs, U32 ifIndex );
   // The same for a device whose namespace is gone: it was destroyed, or is in another one.
   void forget( U32 number, U32 ifIndex );
   // The namespace is gone, and its devices with it.
   void forget( U32 number );

 private:
   struct Unload {
      void operator()( valen_filter * filter ) const noexcept;
   };
   using Program = std::unique_ptr< valen_filter, Unload >;
   // A filter on a device: the descriptor of the link keeps it there, or it is in a clsact.
   struct Attached {
      Hook hook = Hook::tcx;
      Valen::Linux::Fd link;
   };
   struct Namespace {
      Program program;
      std::map< U32, Attached > devices;
   };

   // The maps that all programs have in common, as in Filters.cpp.
   static constexpr std::size_t commonMaps = 5;

   Program loaded( U32 number );
   Valen::Linux::Fd map( std::size_t which );
   Namespace & namespaceOf( U32 number );
   Attached attachTo( int program, U32 ifIndex );
   void erase( Namespace & in, std::map< U32, Attached >::iterator device );

   Hook hook_;
   std::size_t const mostByTcx_;
   std::size_t byTcx_ = 0;
   std::array< Valen::Linux::Fd, commonMaps > maps_; // empty until the first program is loaded
   std::map< U32, Namespace > namespaces_;
};

} // namespace Egress
