#include "valend/shutdown/JournalEntry.h"

#include "valend/shutdown/ShutdownJson.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>
#include <stdexcept>

namespace Valend {

using Json = nlohmann::json;
using Phase = JournalEntry::Phase;

namespace {

// By phase.
constexpr char const * phaseTexts[] = { "asked",    "sending",  "held",
                                        "flushing", "lowering", "ended" };

Phase phaseOf( std::string const & text ) {
   auto const * const found = std::find( std::begin( phaseTexts ), std::end( phaseTexts ), text );
   if ( found == std::end( phaseTexts ) ) {
      throw std::out_of_range( "no phase " + text );
   }
   return static_cast< Phase >( found - std::begin( phaseTexts ) );
}

// CRC-32 (the polynomial of Ethernet's own checksum, reflected), by bytes.
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

Json JournalEntry::toJson() const {
   return { { "id", id },
            { "phase", phaseTexts[ static_cast< std::size_t >( phase ) ] },
            { "namespace", place.netNs },
            { "device", place.device },
            { "boot", bootId },
            { "askedNs", askedAt.count() },
            { "sentNs", sentAt.count() },
            { "untilNs", heldUntil.count() },
            { "shutdown", Valend::toJson( record ) } };
}

JournalEntry JournalEntry::fromJson( Json const & json ) {
   JournalEntry entry;
   entry.id = json.at( "id" );
   entry.phase = phaseOf( json.at( "phase" ) );
   entry.place = { json.at( "namespace" ), json.at( "device" ) };
   entry.bootId = json.at( "boot" );
   entry.askedAt = std::chrono::nanoseconds( json.at( "askedNs" ).get< S64 >() );
   entry.sentAt = std::chrono::nanoseconds( json.at( "sentNs" ).get< S64 >() );
   entry.heldUntil = std::chrono::nanoseconds( json.at( "untilNs" ).get< S64 >() );
   entry.record = recordFromJson( json.at( "shutdown" ) );
   return entry;
}

std::string lineOf( JournalEntry const & entry ) {
   auto const text = entry.toJson().dump( -1, ' ', false, Json::error_handler_t::replace );
   return checksum( text ) + " " + text;
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
   } catch ( std::exception const & ) { // a journal of another make
      return std::nullopt;
   }
}

} // namespace Valend
