#include "valend/shutdown/JournalEntry.h"

#include <gtest/gtest.h>
#include <set>

namespace Valend {
namespace {

using namespace std::chrono_literals;
using Json = nlohmann::json;

JournalEntry entry( Phase phase ) {
   JournalEntry entry;
   entry.id = 42;
   entry.phase = phase;
   entry.record.place = { "ns-red", "et1" };
   entry.bootId = "b1";
   entry.requestedAt = 1ns;
   entry.hold = Hold{ 2ns, 3ns };
   entry.mark = LinkMark{ 7, 3 };
   entry.muted = { { "lldp", 10, "0a1b", "chassis one" }, { "vrrp", 0, "", "" } };
   entry.record.interface = "Ethernet1";
   return entry;
}

TEST( JournalEntryTest, AnEntryIsReadBackAsWrittenInEachPhase ) {
   std::set< std::string > texts;
   for ( auto const & row : enumTexts( Phase() ) ) {
      EXPECT_EQ( entryIn( lineOf( entry( row.value ) ) ), entry( row.value ) ) << row.text;
      texts.insert( row.text );
   }
   EXPECT_EQ( texts.size(), enumTexts( Phase() ).size() ) << "no two phases share a text";
}

TEST( JournalEntryTest, AHoldIsNullUntilTheSendingBegins ) {
   auto requested = entry( Phase::requested );
   requested.hold.reset();
   EXPECT_TRUE( requested.toJson()[ "heldFromNs" ].is_null() );
   EXPECT_TRUE( requested.toJson()[ "heldUntilNs" ].is_null() );
   EXPECT_EQ( entryIn( lineOf( requested ) ), requested );
}

TEST( JournalEntryTest, AMarkIsNullWhenTheDeviceWasNotKnown ) {
   auto unknown = entry( Phase::requested );
   unknown.mark.reset();
   EXPECT_TRUE( unknown.toJson()[ "ifIndex" ].is_null() );
   EXPECT_EQ( entryIn( lineOf( unknown ) ), unknown );
}

// There would be no deadline.
TEST( JournalEntryTest, AHeldEntryWithoutAHoldIsRejected ) {
   for ( auto const phase : { Phase::held, Phase::heldToDeadline } ) {
      auto held = entry( phase );
      held.hold.reset();
      EXPECT_EQ( entryIn( lineOf( held ) ), std::nullopt );
   }
}

TEST( JournalEntryTest, AnUnknownPhaseIsRejected ) {
   auto json = entry( Phase::held ).toJson();
   json[ "phase" ] = "dreaming";
   EXPECT_THROW( JournalEntry::fromJson( json ), std::out_of_range );
}

TEST( JournalEntryTest, AnEntryThatLacksAFieldIsRejected ) {
   auto const whole = entry( Phase::held ).toJson();
   for ( auto const & [ name, value ] : whole.items() ) {
      if ( name == "muted" ) {
         continue;
      }
      auto json = whole;
      json.erase( name );
      EXPECT_THROW( JournalEntry::fromJson( json ), Json::exception ) << name;
   }
}

TEST( JournalEntryTest, AnOlderEntryWithoutMutedSpeakersIsRead ) {
   auto older = entry( Phase::held );
   auto json = older.toJson();
   json.erase( "muted" );
   older.muted.clear();
   EXPECT_EQ( JournalEntry::fromJson( json ), older );
}

TEST( JournalEntryTest, ALineWithAnyByteChangedIsRejected ) {
   auto const line = lineOf( entry( Phase::held ) );
   for ( std::size_t i = 0; i < line.size(); ++i ) {
      auto changed = line;
      changed[ i ] = static_cast< char >( changed[ i ] ^ 1 );
      EXPECT_EQ( entryIn( changed ), std::nullopt ) << "byte " << i;
   }
}

TEST( JournalEntryTest, ATruncatedLineIsRejected ) {
   auto const line = lineOf( entry( Phase::held ) );
   for ( std::size_t length = 0; length < line.size(); ++length ) {
      EXPECT_EQ( entryIn( line.substr( 0, length ) ), std::nullopt ) << length << " bytes";
   }
}

// The well-known check value of CRC-32.
TEST( JournalEntryTest, TheChecksumIsThatOfTheText ) {
   auto const line = lineOf( entry( Phase::held ) );
   EXPECT_EQ( line[ 8 ], ' ' );
   EXPECT_EQ( nlohmann::json::parse( line.substr( 9 ) ), entry( Phase::held ).toJson() );
   EXPECT_EQ( entryIn( "cbf43926 123456789" ), std::nullopt ) << "a right checksum of no entry";
}

// The kernel and agents name things; what is not UTF-8 must not stop a shutdown.
TEST( JournalEntryTest, ANameThatIsNotUtf8IsWrittenWithReplacements ) {
   auto odd = entry( Phase::held );
   odd.record.why = "no device \xff";
   auto const read = entryIn( lineOf( odd ) );
   ASSERT_TRUE( read );
   EXPECT_EQ( read->record.why, "no device \xef\xbf\xbd" );
}

} // namespace
} // namespace Valend
