#include "valenctl/text/TimeText.h"

#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>

namespace Valenctl {
namespace {

TEST( TimeTextTest, ATimeHasAsManyDecimalsAsItsUnit ) {
   EXPECT_EQ( timeText( std::chrono::milliseconds( 1'700'000'000'023 ) ),
              "2023-11-14T22:13:20.023Z" );
   EXPECT_EQ( timeText( std::chrono::microseconds( 1'700'000'000'000'456 ) ),
              "2023-11-14T22:13:20.000456Z" );
   EXPECT_EQ( timeText( std::chrono::milliseconds( 0 ) ), "1970-01-01T00:00:00.000Z" );
}

TEST( TimeTextTest, ATimeIsReadAsAnOperatorGivesIt ) {
   using std::chrono::milliseconds;
   milliseconds const now( 1'700'000'000'123 );
   auto const ago = [ & ]( char const * text ) {
      auto const time = timeFrom( text, now );
      return time ? std::optional( now - *time ) : std::nullopt;
   };
   EXPECT_EQ( ago( "30s" ), std::chrono::seconds( 30 ) );
   EXPECT_EQ( ago( "5m" ), std::chrono::minutes( 5 ) );
   EXPECT_EQ( ago( "2h" ), std::chrono::hours( 2 ) );
   EXPECT_EQ( ago( "1d" ), std::chrono::hours( 24 ) );
   EXPECT_EQ( timeFrom( timeText( now ), now ), now );
   EXPECT_EQ( timeFrom( "2023-11-14T22:13:20.000456Z", now ), milliseconds( 1'700'000'000'000 ) );
   EXPECT_EQ( timeFrom( "2023-11-14T22:13:20Z", now ), milliseconds( 1'700'000'000'000 ) );
   for ( auto const * text :
         { "", "5", "m", "5x", "-5m", "5m ", "99999999999999999d", "2023-11-14T22:13:20",
           "2023-11-14T22:13:20.Z", "2023-11-14T22:13:20.1x3Z", "2023-11-14", "noon" } ) {
      EXPECT_EQ( timeFrom( text, now ), std::nullopt ) << text;
   }
}

TEST( TimeTextTest, ATimeWithoutAZoneIsLocal ) {
   ::setenv( "TZ", "EST5", 1 );
   ::tzset();
   std::chrono::milliseconds const now( 0 );
   EXPECT_EQ( timeFrom( "2023-11-14 17:13", now ), timeFrom( "2023-11-14T22:13:00Z", now ) );
   EXPECT_EQ( timeFrom( "2023-11-14 17:13:20", now ), timeFrom( "2023-11-14T22:13:20Z", now ) );
   ::unsetenv( "TZ" );
   ::tzset();
}

TEST( TimeTextTest, ADurationHasTheUnitThatPeopleRead ) {
   using namespace std::chrono_literals;
   EXPECT_EQ( durationText( 0ms ), "0 ms" );
   EXPECT_EQ( durationText( 999ms ), "999 ms" );
   EXPECT_EQ( durationText( 1000ms ), "1 s" );
   EXPECT_EQ( durationText( 119'999ms ), "119 s" );
   EXPECT_EQ( durationText( 2min ), "2 min" );
   EXPECT_EQ( durationText( 119min ), "119 min" );
   EXPECT_EQ( durationText( 24h ), "24 h" );
}

} // namespace
} // namespace Valenctl
