// The only writer of configuration entities: puts a configuration in force as a difference against
// the one before, in an order in which every state on the way is one that the library allows.
//
//   - An interface's configuration entity is never swapped, and its "supported" flag never changes
//     in place: out, then in.
//   - A message is filled before it is published and never emptied; a changed one is a new entity.
//   - An agent's directory has exactly one message directory, "messages".
//   - A VRF's namespace never changes in place, and its state is active only while the namespace can
//     be opened and no other VRF is in it. The default VRF has no status entry.
//   - An interface whose last message goes, or that changes in anything but its messages, has its L3
//     status taken out before and put in after, so that nothing stays bound to the old record.
//
// Never called inside a notification.
#pragma once

#include "platform/gantry/Timer.h"
#include "settings/Config.h"
#include "valend/kernel/Namespaces.h"
#include "valend/store/Store.h"

#include <map>
#include <memory>
#include <set>

namespace Valend {

class Feeder {
 public:
   // All must outlive the feeder.
   Feeder( Store & store, Namespaces const & namespaces,
           Quill::Ptr< Gantry::TaskScheduler > scheduler );
   ~Feeder();
   Feeder( Feeder const & ) = delete;
   Feeder & operator=( Feeder const & ) = delete;

   // Puts `config`, which must be valid, in force. What it does not touch is not disturbed.
   void apply( Settings::Config config );
   Settings::Config const & config() const noexcept { return config_; }

   // The namespace came, went, or is another one under the same name now.
   void namespaceChanged( std::string const & name );
   // Why the VRF does not work; empty when it does.
   std::string vrfTrouble( std::string const & vrf ) const;

   // Whether that is because the namespace does not exist.
   bool namespaceMissing( std::string const & vrf ) const;

   // The library could not set the VRF up. It is taken out and put in again after a pause that
   // grows from 1 s to a minute. May be called inside a notification.
   void vrfFailed( std::string const & vrf, std::string const & why );

 private:
   struct Vrf {
      NamespaceView view;
      std::string conflict; // the VRF that is in the same namespace and came first
   };
   struct Retry;
   struct Difference;

   Difference differenceTo( Settings::Config const & next ) const;
   void takeOut( Difference const & difference, Settings::Config const & next );
   void putIn( Difference const & difference );
   void agentsOut( Settings::Config const & next );
   void agentsIn( Settings::Config const & before );
   void messagesIn( std::string const & agent,
                    std::map< std::string, Settings::Frames > const & messages,
                    std::map< std::string, Settings::Frames > const * before );
   void interfaceIn( Settings::InterfaceConfig const & interface );
   void interfaceOut( Settings::InterfaceConfig const & interface, bool forGood, bool configToo );
   void l3In( std::string const & interface );
   void l3Out( std::string const & interface );
   void vrfOut( std::string const & vrf );
   void vrfsRenew( std::set< std::string > vrfs );
   void vrfRetry( std::string const & vrf );
   void defaultVrfRenew();
   std::string namespaceTrouble( std::string const & vrf ) const;
   void globalIn();

   Store & store_;
   Namespaces const & namespaces_;
   Quill::Ptr< Gantry::TaskScheduler > const scheduler_;
   std::string const ownIdentity_; // of the default VRF's namespace
   Settings::Config config_;
   Quill::Ptr< Valen::Config::GlobalConfig > globalConfig_; // the one published last
   std::map< std::string, Vrf > vrfs_;
   std::map< std::string, std::unique_ptr< Retry > > retries_;
};

} // namespace Valend
