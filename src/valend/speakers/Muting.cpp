#include "valend/speakers/Muting.h"

#include "settings/Hex.h"
#include "valend/speakers/SentGoodbyes.h"

#include <algorithm>

namespace Valend {

using Clock = std::chrono::steady_clock;

namespace {

constexpr std::chrono::milliseconds renewalInterval{ 500 };

std::optional< Egress::Speaker > speakerFrom( SpeakerIdentity const & speaker,
                                              FilteredDevice const & filtered ) {
   try {
      return Egress::speakerOf( speaker.protocol, speaker.vlan,
                                Settings::frameFromHex( speaker.identity ), filtered.filter,
                                filtered.ifIndex );
   } catch ( Settings::HexError const & ) { // of another version
      return std::nullopt;
   }
}

} // namespace

Muting::Muting( Quill::Ptr< Gantry::TaskScheduler > scheduler )
    : renewal_( std::move( scheduler ), "mutes", [ this ] { renew(); } ) {}

Muting::~Muting() {
   for ( auto & [ place, device ] : devices_ ) {
      unmuteOn( device );
   }
}

bool Muting::anyCanBeMuted( std::vector< std::string_view > const & goodbyes ) {
   return std::any_of( goodbyes.begin(), goodbyes.end(), []( auto const & goodbye ) {
      return Egress::speakerOf( goodbye, 0, 0 ).has_value();
   } );
}

std::string Muting::mute( LinkPlace const & place, FilteredDevice const & filtered,
                          std::vector< std::string_view > const & goodbyes,
                          std::chrono::milliseconds time ) {
   auto & device = devices_[ place ];
   unmuteOn( device );
   device.until = Clock::now() + time;
   return muteOn( device, [ & ]( auto const & mute ) {
      for ( auto const & goodbye : goodbyes ) {
         if ( auto const id = Egress::speakerOf( goodbye, filtered.filter, filtered.ifIndex ) ) {
            mute( *id, [ & ] { return speakerName( goodbye ); } );
         } // else a protocol that valend does not know
      }
   } );
}

std::string Muting::muteAgain( LinkPlace const & place, FilteredDevice const & filtered,
                               std::vector< SpeakerIdentity > const & speakers,
                               Egress::Mutes::Time until ) {
   auto & device = devices_[ place ];
   device.until = until;
   return muteOn( device, [ & ]( auto const & mute ) {
      for ( auto const & speaker : speakers ) {
         if ( auto const id = speakerFrom( speaker, filtered ) ) {
            mute( *id, [ & ] { return speaker.name; } );
         }
      }
   } );
}

template < class Each > std::string Muting::muteOn( Device & device, Each const & each ) {
   Quill::Expect const expected( Quill::ExceptionId::errnoFailure );
   try {
      each( [ & ]( auto const & id, auto const & name ) { muteOne( device, id, name ); } );
   } catch ( Quill::ErrnoException const & e ) {
      return e.text();
   }
   if ( !renewal_.running() ) {
      renewal_.start( renewalInterval );
   }
   return "";
}

template < class Name >
void Muting::muteOne( Device & device, Egress::Speaker const & id, Name const & name ) {
   auto known = std::find_if( device.speakers.begin(), device.speakers.end(),
                              [ & ]( auto const & speaker ) { return speaker.id == id; } );
   if ( known == device.speakers.end() ) {
      known = device.speakers.insert( known, Speaker{ id, name() } );
   }
   if ( !known->muted ) {
      mutes_->mute( id, device.until );
      known->muted = true;
   }
}

std::vector< SpeakerIdentity > Muting::muted( LinkPlace const & place ) const {
   std::vector< SpeakerIdentity > identities;
   if ( auto const device = devices_.find( place ); device != devices_.end() ) {
      for ( auto const & speaker : device->second.speakers ) {
         if ( speaker.muted && identities.size() < SpeakerPort::mostIdentities ) {
            identities.push_back(
               { std::string( Egress::protocolOf( speaker.id ) ), speaker.id.vlan,
                 Settings::toHex( Egress::identityOf( speaker.id ) ), speaker.name } );
         }
      }
   }
   return identities;
}

void Muting::unmuteOn( Device & device ) {
   for ( auto & speaker : device.speakers ) {
      if ( std::exchange( speaker.muted, false ) ) {
         speaker.heldBack += mutes_->unmute( speaker.id );
      }
   }
}

std::vector< Muting::Speaker > Muting::unmute( LinkPlace const & place ) {
   auto device = devices_.extract( place );
   if ( device.empty() ) {
      return {};
   }
   unmuteOn( device.mapped() );
   return std::move( device.mapped().speakers );
}

void Muting::deviceLost( LinkPlace const & place ) {
   if ( auto const device = devices_.find( place ); device != devices_.end() ) {
      unmuteOn( device->second );
   }
}

// The kernel may take longer to set a link down than the mutes last.
void Muting::renew() {
   auto const until = Clock::now() + lease;
   for ( auto & [ place, device ] : devices_ ) {
      if ( device.until > until - renewalInterval ) {
         continue;
      }
      device.until = until;
      for ( auto & speaker : device.speakers ) {
         if ( speaker.muted ) {
            speaker.heldBack += mutes_->renew( speaker.id, until );
         }
      }
   }
   if ( !devices_.empty() ) {
      renewal_.start( renewalInterval );
   }
}

} // namespace Valend
