// Raw transmit endpoints that record what is sent instead of sending it.
#pragma once

#include "platform/corvid/RawTxPam.h"
#include "platform/quill/Exception.h"

#include <functional>
#include <set>
#include <string>
#include <vector>

namespace Valen::Test {

// Replaces the kernel's endpoints while it exists.
class RecordingRawTxPams final : public Corvid::RawTxPamProvider {
 public:
   struct Packet {
      std::string netNs;
      U32 ifIndex;
      std::string bytes;
      bool operator==( Packet const & ) const = default;
   };
   struct Burst {
      std::string netNs;
      U32 ifIndex;
      std::string deviceName;
      bool operator==( Burst const & ) const = default;
   };

   RecordingRawTxPams() : old_( Corvid::rawTxPamProviderIs( this ) ) {}
   ~RecordingRawTxPams() override { Corvid::rawTxPamProviderIs( old_ ); }

   Quill::Ptr< Corvid::RawTxPam > newRawTxPam( Quill::String name ) override {
      return Quill::make< Endpoint >( std::move( name ), *this );
   }

   // The packets that were sent, and the bursts that were announced, on all endpoints in order.
   std::vector< Packet > packets;
   std::vector< Burst > bursts;
   // Every enabledIs( true ) fails with this errno; 0 lets it succeed.
   int enableErrno = 0;
   // The sends that fail, counted from 0 over all endpoints, with `sendErrno`.
   std::set< U32 > failingSends;
   int sendErrno = 100; // ENETDOWN
   U32 sends = 0;       // tried so far
   // Called after each send, in the middle of a burst.
   std::function< void() > afterSend = [] {};
   // Those of the last burst that failed, counted from 0 from its beginning.
   std::vector< U32 > failedOfBurst;
   U32 live = 0; // endpoints alive

 private:
   class Endpoint final : public Corvid::RawTxPam {
      QUILL_TRACKED( Valen::Test::RecordingRawTxPam )
    public:
      Endpoint( Quill::String name, RecordingRawTxPams & owner )
          : RawTxPam( std::move( name ) ), owner_( owner ) {
         ++owner_.live;
      }
      ~Endpoint() override { --owner_.live; }

      void enabledIs( bool enabled ) override {
         if ( enabled && owner_.enableErrno ) {
            throw Quill::ErrnoException( "open " + netNs().stdString(), owner_.enableErrno );
         }
         enabled_ = enabled;
      }
      bool enabled() const noexcept override { return enabled_; }
      void burstIs( U32 ifIndex, Quill::String const & deviceName ) override {
         owner_.firstOfBurst_ = owner_.sends;
         owner_.failedOfBurst.clear();
         owner_.bursts.push_back( { netNs().stdString(), ifIndex, deviceName.stdString() } );
      }
      bool send( Corvid::Pkt const & pkt, U32 ifIndex ) override {
         bool const failed = owner_.failingSends.contains( owner_.sends++ );
         if ( failed ) {
            lastErrno_ = owner_.sendErrno;
            owner_.failedOfBurst.push_back( owner_.sends - 1 - owner_.firstOfBurst_ );
         } else {
            owner_.packets.push_back(
               { netNs().stdString(), ifIndex, pkt.stringValue().stdString() } );
         }
         owner_.afterSend();
         return !failed;
      }
      int lastErrno() const noexcept override { return lastErrno_; }

    private:
      RecordingRawTxPams & owner_;
      bool enabled_ = false;
      int lastErrno_ = 0;
   };

   Corvid::RawTxPamProvider * const old_;
   U32 firstOfBurst_ = 0;
};

} // namespace Valen::Test
