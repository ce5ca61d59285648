#include "valend/shutdown/JournalEntry.h"

#include "valend/base/Described.h"
#include "valend/shutdown/ShutdownJson.h"

#include <array>
#include <cstdio>
#include <stdexcept>

namespace Valend {

using Json = nlohmann::json;

namespace {

Phase phaseFrom( std::string const & text ) {
   auto const phase = valueOf< Phase >( text );
   if ( !phase ) {
      throw std::out_of_range( "unknown phase " + text );
   }
   return *phase;
}

std::chrono::nanoseconds nanosecondsFrom( Json const & json ) {
   return std::chrono::nanoseconds( json.get< S64 >() );
}

// CRC-32 as in Ethernet (reflected polynomial), one byte at a time.
constexpr auto crcTable = [] {
   std::array< U32, 256 > table{};
   for ( U32 byte = 0; byte < 256; ++byte ) {
      auto value = byte;
      for ( int bit = 0; bit < 8; ++bit ) {
         value = ( value >> 1 ) ^ ( value & 1 ? 0xedb88320u : 0 );
      }
      table[ byte ] = value;
   }
   return table;
}();

// As eight hexadecimal digits.
std::string checksum( std::string_view text ) {
   U32 value = ~0u;
   for ( auto const character : text ) {
      value =
         ( value >> 8 ) ^ crcTable[ ( value ^ static_cast< unsigned char >( character ) ) & 255 ];
   }
   char digits[ 9 ];
   std::snprintf( digits, sizeof digits, "%08x", ~value );
   return digits;
}

constexpr std::size_t checksumDigits = 8;

} // namespace

template < class Object > void describe( Object & object, SpeakerIdentity const & speaker ) {
   object.add( "protocol", speaker.protocol );
   object.add( "vlan", speaker.vlan );
   object.add( "identity", speaker.identity );
   object.add( "speaker", speaker.name );
}

template < class Object > void describe( Object & object, JournalEntry const & entry ) {
   auto const & [ id, phase, bootId, requestedAt, hold, mark, muted, record ] = entry;
   object.add( "id", id );
   object.add( "phase", textOf( phase ) );
   object.add( "boot", bootId );
   object.add( "requestedNs", requestedAt.count() );
   object.add( "heldFromNs", hold ? std::optional( hold->from.count() ) : std::nullopt );
   object.add( "heldUntilNs", hold ? std::optional( hold->until.count() ) : std::nullopt );
   object.add( "ifIndex", mark ? std::optional( mark->ifIndex ) : std::nullopt );
   object.add( "carrierUps", mark ? std::optional( mark->carrierUps ) : std::nullopt );
   object.add( "muted", muted );
   object.add( "shutdown", record );
}

Json JournalEntry::toJson() const {
   return JsonValue::of( *this );
}

JournalEntry JournalEntry::fromJson( Json const & json ) {
   JournalEntry entry;
   entry.id = json.at( "id" );
   entry.phase = phaseFrom( json.at( "phase" ) );
   entry.bootId = json.at( "boot" );
   entry.requestedAt = nanosecondsFrom( json.at( "requestedNs" ) );
   if ( !json.at( "heldFromNs" ).is_null() ) {
      entry.hold = Hold{ nanosecondsFrom( json.at( "heldFromNs" ) ),
                         nanosecondsFrom( json.at( "heldUntilNs" ) ) };
   }
   if ( isHeld( entry.phase ) && !entry.hold ) {
      throw std::out_of_range( "held without a deadline" );
   }
   if ( !json.at( "ifIndex" ).is_null() ) {
      entry.mark = LinkMark{ json.at( "ifIndex" ), json.at( "carrierUps" ) };
   }
   for ( auto const & speaker :
         json.value( "muted", Json::array() ) ) { // older journals do not have them
      entry.muted.push_back( { speaker.at( "protocol" ), speaker.at( "vlan" ),
                               speaker.at( "identity" ), speaker.at( "speaker" ) } );
   }
   entry.record = recordFromJson( json.at( "shutdown" ) );
   return entry;
}

std::string lineOf( JournalEntry const & entry ) {
   auto const text = JsonText::of( entry );
   std::string line;
   line.reserve( checksumDigits + 1 + text.size() + 1 ); // the caller ends the line
   ( ( line += checksum( text ) ) += ' ' ) += text;
   return line;
}

std::optional< JournalEntry > entryIn( std::string_view line ) {
   if ( line.size() <= checksumDigits || line[ checksumDigits ] != ' ' ) {
      return std::nullopt;
   }
   auto const text = line.substr( checksumDigits + 1 );
   if ( checksum( text ) != line.substr( 0, checksumDigits ) ) {
      return std::nullopt;
   }
   try {
      return JournalEntry::fromJson( Json::parse( text ) );
   } catch ( std::exception const & ) { // an entry that this version does not know
      return std::nullopt;
   }
}

} // namespace Valend
