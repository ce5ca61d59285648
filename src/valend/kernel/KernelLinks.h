// The kernel as the agent sees it: the devices of every configured namespace, whether the library
// wants them or not; links up and down; and what became of the frames.
//
// Stands between the store and the publisher of devices: both the library and the agent follow the
// devices of a namespace, through one watcher, which goes when neither does any more.
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
   KernelLinks( Valen::Linux::EventLoop & loop, Valen::Linux::NetNsFolders folders,
                Valen::Linux::PacketEndpointProvider const & endpoints, Conditions & conditions );

   // Follows the devices of these namespaces from now on, and of no others on its own account.
   void netNssAre( std::set< std::string > const & netNss );
   // Who hears when a device of these namespaces is set up or down, or goes; see LinkWatch.
   void seenIs( LinkWatch::Seen seen ) { watch_.seenIs( std::move( seen ) ); }
   // The namespace came, went, or is another one now.
   void refresh( std::string const & netNs );
   std::optional< LinkDevice > device( LinkPlace const & place ) const override;
   bool up( LinkPlace const & place ) override;
   void upIs( LinkPlace const & place, bool up ) override;
   Counters counters( std::string const & netNs ) const override;
   std::vector< RefusedPacket > refused( LinkPlace const & place ) const override;
   U64 outstandingBytes( std::string const & netNs ) const override;
   U64 resyncs() const override;

   NamespaceView look( std::string const & name ) const override;

   Quill::Ptr< Quill::Entity > mount( std::string_view path ) override;
   void unmount( std::string_view path ) override;

 private:
   void follow( std::string const & netNs );
   void unfollow( std::string const & netNs );
   std::string errorOf( std::string const & netNs ) const;
   LinkDevice requireDevice( LinkPlace const & place ) const;

   Valen::Linux::NetNsFolders const folders_;
   Valen::Linux::PacketEndpointProvider const & endpoints_;
   Valen::Linux::KernelNetInfoProvider devices_;
   Valen::Linux::LinkControl control_;
   LinkWatch watch_;
   Conditions & conditions_;
   std::map< std::string, Quill::Ptr< DeviceCondition > > deviceConditions_; // by namespace
   std::set< std::string > netNss_;              // that the agent follows
   std::set< std::string, std::less<> > ours_;   // their mount paths
   std::set< std::string, std::less<> > theirs_; // and that the library has mounted
};

} // namespace Valend
