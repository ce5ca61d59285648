// Speakers as a test has them: the last byte of each goodbye is its protocol.
#pragma once

#include "valend/speakers/SpeakerPort.h"

#include <map>

namespace Valend::Test {

class FakeSpeakers final : public SpeakerPort {
 public:
   std::string whyNot; // of every mute()
   std::vector< std::string >
      calls;         // "mute default/et1 lldp vrrp for 1500 ms", "unmute default/et1"
   U64 heldBack = 0; // of each speaker, when it is heard again

   std::string mute( LinkPlace const & place, std::vector< std::string_view > const & goodbyes,
                     std::chrono::milliseconds time ) override {
      std::string call = "mute " + place.netNs + "/" + place.device;
      auto & muted = muted_[ place ];
      for ( auto const & goodbye : goodbyes ) {
         muted.push_back(
            { std::string( goodbye.substr( goodbye.size() - 1 ) ), "", heldBack, false } );
         call += " " + muted.back().protocol;
      }
      calls.push_back( call + " for " + std::to_string( time.count() ) + " ms" );
      return whyNot;
   }
   std::vector< SpeakerIdentity > muted( LinkPlace const & place ) const override {
      std::vector< SpeakerIdentity > identities;
      if ( auto const muted = muted_.find( place ); muted != muted_.end() ) {
         for ( auto const & speaker : muted->second ) {
            identities.push_back( { speaker.protocol, 0, "01", speaker.name } );
         }
      }
      return identities;
   }
   std::string muteAgain( LinkPlace const & place, std::vector< SpeakerIdentity > const & speakers,
                          std::chrono::milliseconds time ) override {
      std::string call = "mute again " + place.netNs + "/" + place.device;
      for ( auto const & speaker : speakers ) {
         call += " " + speaker.protocol;
         if ( whyNot.empty() ) {
            muted_[ place ].push_back( { speaker.protocol, speaker.name, heldBack, false } );
         }
      }
      calls.push_back( call + " for " + std::to_string( time.count() ) + " ms" );
      return whyNot;
   }
   std::vector< MutedSpeaker > unmute( LinkPlace const & place, bool greet ) override {
      calls.push_back( "unmute " + place.netNs + "/" + place.device +
                       ( greet ? " and greet" : "" ) );
      auto muted = std::exchange( muted_[ place ], {} );
      for ( auto & speaker : muted ) {
         speaker.greeted = greet;
      }
      return muted;
   }

 private:
   std::map< LinkPlace, std::vector< MutedSpeaker > > muted_;
};

} // namespace Valend::Test
