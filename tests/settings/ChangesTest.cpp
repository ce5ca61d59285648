#include "settings/Changes.h"

#include <gmock/gmock.h>

namespace Settings {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

Config someConfig() {
   Config config;
   config.shutdownDelayMs = 500;
   config.vrfs[ "red" ] = "ns-red";
   config.interfaces[ "et1" ] = { "et1", "eth1", "default", true };
   config.interfaces[ "et2" ] = { "et2", "eth2", "red", true };
   config.agents[ "lldp" ][ "et1" ] = { "frame" };
   config.agents[ "lldp" ][ "et2" ] = { "frame", "other" };
   return config;
}

TEST( ChangesTest, EqualConfigurationsHaveNoChanges ) {
   EXPECT_THAT( changesBetween( someConfig(), someConfig() ), IsEmpty() );
   auto next = someConfig();
   next.agents[ "idle" ];
   next.process.valueIs( "socket", "/s" );
   EXPECT_THAT( changesBetween( someConfig(), next ), IsEmpty() );
}

TEST( ChangesTest, TheDelayIsReportedWithItsPreviousValue ) {
   auto const before = someConfig();
   auto next = before;
   next.shutdownDelayMs = 0;
   EXPECT_THAT( changesBetween( before, next ), ElementsAre( "shutdown delay 0 ms, was 500 ms" ) );
   next.shutdownDelayMs = std::nullopt;
   EXPECT_THAT( changesBetween( before, next ), ElementsAre( "shutdown delay off, was 500 ms" ) );
   EXPECT_THAT( changesBetween( next, before ), ElementsAre( "shutdown delay 500 ms, was off" ) );
}

TEST( ChangesTest, VrfsAreAddedRemovedAndChangeTheirNamespace ) {
   auto next = someConfig();
   next.vrfs[ "red" ] = "ns-new";
   next.vrfs[ "blue" ] = "ns-blue";
   EXPECT_THAT( changesBetween( someConfig(), next ),
                ElementsAre( "VRF blue: added, namespace ns-blue",
                             "VRF red: namespace ns-new, was ns-red" ) );
   next = someConfig();
   next.vrfs.clear();
   EXPECT_THAT( changesBetween( someConfig(), next ), ElementsAre( "VRF red: removed" ) );
}

TEST( ChangesTest, EachPropertyOfAnInterfaceIsALine ) {
   auto next = someConfig();
   next.interfaces[ "et1" ] = { "et1", "eth9", "red", false };
   next.interfaces[ "et3" ] = { "et3", "eth3", "default", true };
   next.interfaces.erase( "et2" );
   EXPECT_THAT(
      changesBetween( someConfig(), next ),
      ElementsAre( "interface et1: device eth9, was eth1", "interface et1: VRF red, was default",
                   "interface et1: shutdown delay no longer supported", "interface et2: removed",
                   "interface et3: added, device eth3, VRF default" ) );
   auto const supported = changesBetween( next, someConfig() );
   EXPECT_EQ( supported[ 2 ], "interface et1: shutdown delay supported" );
}

TEST( ChangesTest, GoodbyesAreReportedAsTheyAreWritten ) {
   auto const before = someConfig();
   auto next = before;
   next.goodbyes = Goodbyes::learned();
   next.interfaces.at( "et1" ).goodbyes = Goodbyes();
   next.interfaces.at( "et2" ).goodbyes = Goodbyes::of( { "ra", "lldp" } );
   EXPECT_THAT( changesBetween( before, next ),
                ElementsAre( "goodbyes learned, was off",
                             "interface et1: goodbyes off, was not set",
                             "interface et2: goodbyes [lldp, ra], was not set" ) );
   EXPECT_THAT( changesBetween( next, before ),
                ElementsAre( "goodbyes off, was learned",
                             "interface et1: goodbyes not set, was off",
                             "interface et2: goodbyes not set, was [lldp, ra]" ) );
}

TEST( ChangesTest, MessagesAreReportedByInterfaceAndAgent ) {
   auto next = someConfig();
   next.agents[ "lldp" ][ "et1" ] = { "changed" };
   next.agents[ "lldp" ].erase( "et2" );
   next.agents[ "radv" ][ "et2" ] = { "a", "b" };
   EXPECT_THAT( changesBetween( someConfig(), next ),
                ElementsAre( "interface et1: messages of lldp changed, 1 frame",
                             "interface et2: messages of lldp removed",
                             "interface et2: messages of radv added, 2 frames" ) );
   next.agents.clear();
   EXPECT_THAT( changesBetween( someConfig(), next ),
                ElementsAre( "interface et1: messages of lldp removed",
                             "interface et2: messages of lldp removed" ) );
}

TEST( ChangesTest, ASettingOfTheProcessThatDiffersIsReportedWithWhenItTakesEffect ) {
   ProcessConfig started, wanted;
   started.valueIs( "socket", "/s" );
   started.valueIs( "trace.levels", "A/0" );
   started.valueIs( "trace.file", "/f" );
   wanted.valueIs( "socket", "/t" );
   wanted.valueIs( "netns-directory", "/n" );
   wanted.valueIs( "metrics-file", "/m" );
   wanted.valueIs( "trace.levels", "B/0" );
   wanted.valueIs( "trace.ring", "/r" );
   EXPECT_THAT( processChanges( started, wanted, TakesEffect::atNextStart ),
                ElementsAre( "socket /t: takes effect at the next start",
                             "netns-directory /n: takes effect at the next start",
                             "metrics-file /m: takes effect at the next start",
                             "trace.file back to its default: takes effect at the next start",
                             "trace.ring /r: takes effect at the next start" ) );
   EXPECT_THAT( processChanges( started, wanted, TakesEffect::onReload ),
                ElementsAre( "trace.levels B/0, was A/0" ) );
   for ( auto const takesEffect : { TakesEffect::onReload, TakesEffect::atNextStart } ) {
      EXPECT_THAT( processChanges( started, started, takesEffect ), IsEmpty() );
   }
}

TEST( ChangesTest, ADefaultThatIsSpelledOutIsNotAChangeOnReload ) {
   ProcessConfig explicitly;
   explicitly.valueIs( "trace.levels", "*/0-1" );
   EXPECT_THAT( processChanges( explicitly, ProcessConfig(), TakesEffect::onReload ), IsEmpty() );
}

} // namespace
} // namespace Settings
