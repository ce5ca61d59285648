#include "valend/speakers/Overload.h"

#include "tests/support/SteppedClock.h"

#include <gmock/gmock.h>

namespace Valend {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class OverloadTest : public ::testing::Test {
 protected:
   // That many more speakers of the protocol are heard.
   void hears( int count, U16 kind = EGRESS_LLDP ) {
      for ( ; count > 0; --count ) {
         Egress::Speaker id{};
         id.kind = kind;
         id.identity[ 0 ] = static_cast< U8 >( ++last_ );
         Derivation::Heard heard;
         heard.holdTime = 120s;
         table.heard( { "red", "et1" }, id, heard, clock.scheduler()->now() );
      }
      overload.lookSoon();
   }
   void advance( std::chrono::milliseconds duration ) {
      for ( ; duration > 0ms; duration -= 100ms ) {
         clock.advance( 100ms );
      }
   }

   Valen::Test::SteppedClock clock;
   std::vector< std::string > log;
   Conditions conditions{ [ this ]( auto, auto const & line ) { log.push_back( line ); } };
   SpeakerTable table;
   Egress::Lost lost;
   Overload overload{ table, [ this ] { return lost; }, conditions, clock.scheduler() };
   static constexpr char const * crowded = "speakers: more than 16 speakers of lldp on device et1 "
                                           "in namespace \"red\"; those heard least "
                                           "recently are forgotten";

 private:
   int last_ = 0;
};

TEST_F( OverloadTest, AsManySpeakersAsAreKnownAreNoProblem ) {
   hears( SpeakerTable::mostOfAProtocol );
   advance( 5s );
   EXPECT_THAT( log, IsEmpty() );
}

TEST_F( OverloadTest, AFloodOfSpeakersIsLoggedOnceAndWhenItIsOver ) {
   hears( SpeakerTable::mostOfAProtocol + 1 );
   advance( 1s );
   EXPECT_THAT( log, ElementsAre( crowded ) );
   for ( int i = 0; i < 90; ++i ) {
      hears( 5 );
      hears( 20, EGRESS_VRRP ); // another protocol does not change the text
      advance( 1s );
   }
   EXPECT_THAT( log, ElementsAre( crowded ) );
   advance( Overload::calm - 1s );
   EXPECT_THAT( log, ElementsAre( crowded ) );
   advance( 2s );
   EXPECT_THAT( log, ElementsAre( crowded, "speakers: recovered" ) );
}

TEST_F( OverloadTest, AFullRingIsLoggedOnceAndWhenItIsOver ) {
   overload.lookSoon();
   advance( 2s );
   EXPECT_THAT( log, IsEmpty() );
   char const * const full =
      "copies: daemons send frames faster than valend reads them; their goodbyes may be outdated";
   for ( int i = 0; i < 10; ++i ) {
      ++lost.full;
      overload.lookSoon();
      advance( 1s );
   }
   EXPECT_THAT( log, ElementsAre( full ) );
   advance( Overload::calm + 1s );
   EXPECT_THAT( log, ElementsAre( full, "copies: recovered" ) );
}

TEST_F( OverloadTest, WhatIsTooLongOrLimitedIsOnlyCounted ) {
   ++lost.tooLong;
   ++lost.limited;
   overload.lookSoon();
   advance( 2s );
   EXPECT_THAT( log, IsEmpty() );
}

} // namespace
} // namespace Valend
