// The kernel as the daemon uses it: the devices of every configured namespace, whether the library
// needs them or not; links up and down; and what happened to the frames.
//
// The library mounts the devices of a namespace through this class, so that library and daemon share
// one rtnetlink socket per namespace. It is closed when neither needs it any more.
#pragma once

#include "linux/KernelNetInfoProvider.h"
#include "linux/LinkControl.h"
#include "linux/PacketEndpoint.h"
#include "valend/kernel/DeviceCondition.h"
#include "valend/kernel/LinkPort.h"
#include "valend/kernel/LinkWatch.h"
#include "valend/kernel/Namespaces.h"

#include <set>

namespace Valend {

class KernelLinks final : public LinkPort, public Namespaces, public Orrery::MountProvider {
 public:
   // All must outlive this. Raises the conditions "devices/NAMESPACE".
   KernelLinks( Valen::Linux::EventLoop & loop, Valen::Linux::NetNsDirectories directories,
                Valen::Linux::PacketEndpointProvider const & endpoints, Conditions & conditions );

   // Watches the devices of these namespaces from now on, besides those that the library mounts.
   void netNssAre( std::set< std::string > const & netNss );
   // `seen` is called when a device of these namespaces is set up or down, or disappears; see LinkWatch.
   void seenIs( LinkWatch::Seen seen ) { watch_.seenIs( std::move( seen ) ); }
   // The namespace was created, deleted, or replaced under the same name.
   void refresh( std::string const & netNs );
   std::optional< LinkDevice > device( LinkPlace const & place ) const override;
   bool up( LinkPlace const & place ) override;
   void setUp( LinkPlace const & place ) override;
   void setDown( LinkPlace const & place ) override;
   Counters counters( std::string const & netNs ) const override;
   std::vector< RefusedPacket > refused( LinkPlace const & place ) const override;
   U64 outstandingBytes( LinkPlace const & place ) const override;
   U64 resyncs() const override;

   NamespaceView look( std::string const & name ) const override;

   Quill::Ptr< Quill::Entity > mount( std::string_view path ) override;
   void unmount( std::string_view path ) override;

 private:
   void follow( std::string const & netNs );
   void unfollow( std::string const & netNs );
   std::string errorOf( std::string const & netNs ) const;
   LinkDevice requireDevice( LinkPlace const & place ) const;
   void stateIs( LinkPlace const & place, Valen::Linux::LinkState state );

   Valen::Linux::NetNsDirectories const netNsDirectories_;
   Valen::Linux::PacketEndpointProvider const & endpoints_;
   Valen::Linux::KernelNetInfoProvider devices_;
   Valen::Linux::LinkControl control_;
   LinkWatch watch_;
   Conditions & conditions_;
   std::map< std::string, Quill::Ptr< DeviceCondition > > deviceConditions_; // by namespace
   std::set< std::string > netNss_;              // that the daemon watches
   std::set< std::string, std::less<> > ours_;   // their mount paths
   std::set< std::string, std::less<> > theirs_; // those that the library has mounted
};

} // namespace Valend
