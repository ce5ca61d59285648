#include "valend/speakers/SpeakerTable.h"

#include <algorithm>
#include <set>

namespace Valend {

using Derivation::Heard;
using std::chrono::milliseconds;

namespace {

constexpr milliseconds shortest{ 100 };
constexpr milliseconds longest{ std::chrono::hours( 24 ) };

Gantry::Time expiryOf( SpeakerTable::Speaker const & speaker ) {
   auto earliest = Gantry::Time::max();
   for ( auto const & [ name, part ] : speaker.parts ) {
      earliest = std::min( earliest, SpeakerTable::freshUntil( part ) );
   }
   return earliest;
}

template < class Speakers > auto findIn( Speakers & speakers, Egress::Speaker const & id ) {
   return std::find_if( speakers.begin(), speakers.end(),
                        [ & ]( auto const & speaker ) { return speaker.id == id; } );
}

} // namespace

SpeakerTable::Part const & SpeakerTable::Speaker::latest() const noexcept {
   return std::max_element(
             parts.begin(), parts.end(),
             []( auto const & a, auto const & b ) { return a.second.at < b.second.at; } )
      ->second;
}

Gantry::Time SpeakerTable::freshUntil( Part const & part ) noexcept {
   return part.at + std::clamp( part.heard.holdTime, shortest, longest );
}

bool SpeakerTable::heard( LinkPlace const & place, Egress::Speaker const & id, Heard const & heard,
                          Gantry::Time now ) {
   if ( heard.leaves ) {
      return left( place, id, heard.part );
   }
   auto & known = speaker( place, id );
   bool const isNew = known.parts.empty();
   auto const part = known.parts.find( heard.part );
   if ( part == known.parts.end() && known.parts.size() >= mostParts ) {
      known.parts.erase( std::min_element(
         known.parts.begin(), known.parts.end(),
         []( auto const & a, auto const & b ) { return a.second.at < b.second.at; } ) );
   }
   bool const changed = part == known.parts.end() || part->second.heard.goodbye != heard.goodbye;
   known.parts.insert_or_assign( heard.part, Part{ heard, now } );
   if ( auto const expiry = expiryOf( known ); isNew || expiry < known.due ) {
      dueIs( place, known, expiry );
   }
   return changed;
}

bool SpeakerTable::says( LinkPlace const & place, Egress::Speaker const & id,
                         std::vector< Heard > const & parts, Gantry::Time now ) {
   std::set< std::string > outdated;
   if ( auto const * const known = find( place, id ) ) {
      for ( auto const & [ name, part ] : known->parts ) {
         outdated.insert( name );
      }
   }
   bool changed = false;
   for ( auto const & part : parts ) {
      outdated.erase( part.part );
      changed = heard( place, id, part, now ) || changed;
   }
   for ( auto const & name : outdated ) {
      changed = left( place, id, name ) || changed;
   }
   return changed;
}

bool SpeakerTable::left( LinkPlace const & place, Egress::Speaker const & id,
                         std::string const & part ) {
   auto const device = devices_.find( place );
   if ( device == devices_.end() ) {
      return false;
   }
   auto const speaker = findIn( device->second, id );
   if ( speaker == device->second.end() || !speaker->parts.erase( part ) ) {
      return false;
   }
   if ( speaker->parts.empty() ) {
      dueDel( place, *speaker );
      device->second.erase( speaker );
   }
   return true;
}

SpeakerTable::Speaker & SpeakerTable::speaker( LinkPlace const & place,
                                               Egress::Speaker const & id ) {
   auto & speakers = devices_[ place ];
   auto const known = findIn( speakers, id );
   if ( known != speakers.end() ) {
      return *known;
   }
   makeRoom( place, id.kind );
   return speakers.emplace_back( Speaker{ id, {}, {} } );
}

void SpeakerTable::makeRoom( LinkPlace const & place, U16 kind ) {
   auto & speakers = devices_[ place ];
   auto oldest = speakers.end();
   std::size_t count = 0;
   for ( auto speaker = speakers.begin(); speaker != speakers.end(); ++speaker ) {
      if ( speaker->id.kind != kind ) {
         continue;
      }
      ++count;
      if ( oldest == speakers.end() || speaker->latest().at < oldest->latest().at ) {
         oldest = speaker;
      }
   }
   if ( count >= mostOfAProtocol ) {
      auto & counters = counters_[ std::string( Egress::protocolOf( oldest->id ) ) ];
      ++counters.madeRoom;
      counters.crowded = place;
      dueDel( place, *oldest );
      speakers.erase( oldest );
   }
}

void SpeakerTable::dueIs( LinkPlace const & place, Speaker & speaker, Gantry::Time due ) {
   dueDel( place, speaker );
   speaker.due = due;
   due_.emplace( due, Due{ place, speaker.id } );
}

void SpeakerTable::dueDel( LinkPlace const & place, Speaker const & speaker ) {
   auto const [ first, last ] = due_.equal_range( speaker.due );
   auto const own = std::find_if( first, last, [ & ]( auto const & due ) {
      return due.second.place == place && due.second.id == speaker.id;
   } );
   if ( own != last ) {
      due_.erase( own );
   }
}

void SpeakerTable::forget( LinkPlace const & place ) {
   for ( auto const & speaker : known( place ) ) {
      dueDel( place, speaker );
   }
   devices_.erase( place );
}

void SpeakerTable::malformed( Derivation::Malformed const & frame ) {
   ++counters_[ frame.protocol ].malformed[ frame.reason ];
}

std::vector< LinkPlace > SpeakerTable::expire( Gantry::Time now ) {
   std::vector< LinkPlace > changed;
   while ( !due_.empty() && due_.begin()->first <= now ) {
      auto const due = due_.extract( due_.begin() ).mapped();
      auto const device = devices_.find( due.place );
      auto const speaker = findIn( device->second, due.id );
      auto const gone = std::erase_if(
         speaker->parts, [ & ]( auto const & part ) { return freshUntil( part.second ) <= now; } );
      if ( gone ) {
         changed.push_back( device->first );
      }
      if ( speaker->parts.empty() ) {
         device->second.erase( speaker );
      } else {
         dueIs( due.place, *speaker, expiryOf( *speaker ) );
      }
   }
   return changed;
}

Gantry::Time SpeakerTable::nextExpiry() const noexcept {
   return due_.empty() ? Gantry::Time::max() : due_.begin()->first;
}

SpeakerTable::Speakers const & SpeakerTable::known( LinkPlace const & place ) const noexcept {
   static Speakers const none;
   auto const device = devices_.find( place );
   return device == devices_.end() ? none : device->second;
}

SpeakerTable::Speaker const * SpeakerTable::find( LinkPlace const & place,
                                                  Egress::Speaker const & id ) const noexcept {
   auto const & speakers = known( place );
   auto const speaker = findIn( speakers, id );
   return speaker == speakers.end() ? nullptr : &*speaker;
}

std::size_t SpeakerTable::count() const noexcept {
   std::size_t count = 0;
   for ( auto const & [ place, speakers ] : devices_ ) {
      count += speakers.size();
   }
   return count;
}

std::map< std::string, U64 > SpeakerTable::byProtocol() const {
   std::map< std::string, U64 > counts;
   for ( auto const & [ place, speakers ] : devices_ ) {
      for ( auto const & speaker : speakers ) {
         ++counts[ std::string( Egress::protocolOf( speaker.id ) ) ];
      }
   }
   return counts;
}

} // namespace Valend
