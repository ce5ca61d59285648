#include "valend/speakers/Speakers.h"

#include "derivation/Derive.h"
#include "platform/quill/Fault.h"

#include <sys/epoll.h>

namespace Valend {

namespace {

// Frames that are read in a turn of the loop.
constexpr std::size_t readBudget = 32;

} // namespace

Speakers::Speakers( Valen::Linux::EventLoop & loop,
                    Valen::Linux::NetNsDirectories const & directories,
                    Attaching::IfIndexOf ifIndexOf, Conditions & conditions )
    : loop_( loop ), muting_( loop.scheduler() ), greetings_( directories, loop.scheduler() ),
      memberships_(
         loop, directories,
         [ this ]( auto const & place, auto const & said ) { groupsRead( place, said ); } ),
      expiry_( loop.scheduler(), "speakers", [ this ] { expire(); } ),
      overload_(
         table_, [ this ] { return lost(); }, conditions, loop.scheduler() ),
      attaching_( loop, directories, std::move( ifIndexOf ), conditions, *this ) {}

Speakers::~Speakers() {
   if ( copies_ ) {
      loop_.descriptorDel( copies_->descriptor() );
   }
}

// --- Filters -------------------------------------------------------------------------------------

void Speakers::loaded( Attaching::Maps maps ) {
   muting_.mapIs( std::move( maps.mutes ) );
   copies_.emplace( std::move( maps.copies ) );
   loop_.descriptorIs( copies_->descriptor(), EPOLLIN, "speakers", [ this ]( U32 ) { read(); } );
}

void Speakers::attached( LinkPlace const & place, FilteredDevice const & device ) {
   places_[ { device.filter, device.ifIndex } ] = place;
   if ( auto const waiting = toMute_.extract( place ); !waiting.empty() ) {
      muting_.muteAgain( place, device, waiting.mapped().speakers, waiting.mapped().until );
   }
   Quill::Expect const expected( Quill::ExceptionId::errnoFailure );
   try {
      copies_->deviceIs( device.filter, device.ifIndex );
   } catch ( Quill::ErrnoException const & ) { // too many devices: this one is muted, but not heard
   }
   memberships_.changed( place, device.ifIndex );
}

void Speakers::lost( LinkPlace const & place, FilteredDevice const & device ) {
   muting_.deviceLost( place );
   if ( copies_ ) {
      copies_->deviceDel( device.filter, device.ifIndex );
   }
   places_.erase( { device.filter, device.ifIndex } );
   table_.forget( place );
   changed_( place );
}

// --- What speakers say ---------------------------------------------------------------------------

void Speakers::read() {
   copies_->read( readBudget, [ this ]( auto const & copy ) { take( copy ); } );
   expireLater();
   overload_.lookSoon();
}

void Speakers::take( Egress::Copy const & copy ) {
   auto const place = places_.find( { copy.speaker.filter, copy.speaker.ifindex } );
   if ( place == places_.end() ) {
      return; // read after the device was lost
   }
   if ( copy.speaker.kind == EGRESS_IGMP || copy.speaker.kind == EGRESS_MLD ) {
      return memberships_.changed( place->second, copy.speaker.ifindex );
   }
   auto const said = Derivation::derive( copy.frame );
   if ( !said ) {
      return;
   }
   if ( auto const * const malformed = std::get_if< Derivation::Malformed >( &*said ) ) {
      return table_.malformed( *malformed );
   }
   auto const & heard = std::get< Derivation::Heard >( *said );
   if ( table_.heard( place->second, copy.speaker, heard, loop_.scheduler()->now() ) ) {
      changed_( place->second );
   }
}

// IGMP and MLD are a speaker each.
void Speakers::groupsRead( LinkPlace const & place,
                           std::vector< Derivation::Heard > const & said ) {
   auto const filtered = attaching_.filtered( place );
   if ( !filtered ) {
      return;
   }
   bool changed = false;
   for ( auto const kind : { EGRESS_IGMP, EGRESS_MLD } ) {
      std::vector< Derivation::Heard > parts;
      std::optional< Egress::Speaker > speaker;
      for ( auto const & heard : said ) {
         auto const id = Egress::speakerOf( heard.goodbye, filtered->filter, filtered->ifIndex );
         if ( id && id->kind == kind ) {
            parts.push_back( heard );
            speaker = id;
         }
      }
      auto const now = loop_.scheduler()->now();
      for ( auto const & known : SpeakerTable::Speakers( table_.known( place ) ) ) {
         if ( known.id.kind == kind && !( speaker && known.id == *speaker ) ) {
            changed = table_.says( place, known.id, {}, now ) || changed; // its address changed
         }
      }
      if ( speaker ) {
         changed = table_.says( place, *speaker, parts, now ) || changed;
      }
   }
   expireLater();
   if ( changed ) {
      changed_( place );
   }
}

void Speakers::expire() {
   for ( auto const & place : table_.expire( loop_.scheduler()->now() ) ) {
      changed_( place );
   }
   expireLater();
}

void Speakers::expireLater() {
   auto const next = table_.nextExpiry();
   if ( next != Gantry::Time::max() && ( !expiry_.running() || next < expiryAt_ ) ) {
      expiryAt_ = next;
      expiry_.start( next - loop_.scheduler()->now() );
   }
}

// --- Muting --------------------------------------------------------------------------------------

std::string Speakers::mute( LinkPlace const & place,
                            std::vector< std::string_view > const & goodbyes,
                            std::chrono::milliseconds time ) {
   auto const filtered = attaching_.filtered( place );
   if ( !filtered ) {
      return Muting::anyCanBeMuted( goodbyes ) ? attaching_.whyNot( place ) : "";
   }
   return muting_.mute( place, *filtered, goodbyes, time );
}

std::vector< SpeakerIdentity > Speakers::muted( LinkPlace const & place ) const {
   return muting_.muted( place );
}

std::string Speakers::muteAgain( LinkPlace const & place,
                                 std::vector< SpeakerIdentity > const & speakers,
                                 std::chrono::milliseconds time ) {
   auto const until = std::chrono::steady_clock::now() + time;
   if ( auto const filtered = attaching_.filtered( place ) ) {
      return muting_.muteAgain( place, *filtered, speakers, until );
   }
   toMute_[ place ] = { speakers, until };
   return attaching_.whyNot( place );
}

std::vector< MutedSpeaker > Speakers::unmute( LinkPlace const & place, bool greet ) {
   toMute_.erase( place );
   std::vector< MutedSpeaker > muted;
   auto const filtered = attaching_.filtered( place );
   for ( auto const & speaker : muting_.unmute( place ) ) {
      auto const * const known = table_.find( place, speaker.id );
      bool const greeted =
         greet && known && filtered && greetings_.send( place, filtered->ifIndex, *known );
      muted.push_back( { std::string( Egress::protocolOf( speaker.id ) ), speaker.name,
                         speaker.heldBack, greeted } );
   }
   return muted;
}

} // namespace Valend
