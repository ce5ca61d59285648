#include "valend/shutdown/ShutdownRecord.h"

#include <gtest/gtest.h>
#include <map>

namespace Valend {
namespace {

using namespace std::chrono_literals;
using Ending = ShutdownRecord::Ending;

ShutdownRecord delayedShutdown() {
   ShutdownRecord record;
   record.interface = "Ethernet1";
   record.request.by = "root";
   record.withDelay = true;
   record.sent = 3;
   record.sending = 249us;
   record.held = 500ms;
   record.total = 501ms;
   record.ending = Ending::down;
   return record;
}

TEST( ShutdownRecordTest, TheSummaryIsOneLine ) {
   EXPECT_EQ( delayedShutdown().summary(),
              "Ethernet1: shutdown by root: 3 frames in 0.2 ms, held 500 ms, "
              "link down, total 501 ms" );
}

TEST( ShutdownRecordTest, TheSummaryNamesFramesThatDidNotLeave ) {
   auto record = delayedShutdown();
   record.sent = 1;
   record.failed = 2;
   record.failReason = "Network is down";
   record.unflushedBytes = 60;
   EXPECT_EQ( record.summary(), "Ethernet1: shutdown by root: 1 frame in 0.2 ms, 2 not sent "
                                "(Network is down), held 500 ms, 60 bytes unflushed, link down, "
                                "total 501 ms" );
}

TEST( ShutdownRecordTest, EachEndingHasASummary ) {
   auto record = delayedShutdown();
   record.withDelay = false;
   record.why = "so";
   std::map< Ending, std::string > const lines{
      { Ending::running, "Ethernet1: shutdown by root: in progress, total 501 ms (so)" },
      { Ending::down, "Ethernet1: shutdown by root: link down, total 501 ms (so)" },
      { Ending::aborted, "Ethernet1: shutdown aborted: so" },
      { Ending::alreadyDown, "Ethernet1: shutdown by root: already down; no frames sent (so)" },
      { Ending::noDevice, "Ethernet1: shutdown by root: total 501 ms, device not present: so" },
      { Ending::failed, "Ethernet1: shutdown by root: total 501 ms, cannot set the link down: so" },
      { Ending::wentDown, "Ethernet1: link set down outside valend; no goodbye frames sent" },
      { Ending::rebooted, "Ethernet1: shutdown by root: machine rebooted, total 501 ms (so)" },
      { Ending::expired, "Ethernet1: shutdown by root: expired; link left unchanged (so)" },
      { Ending::goodbye, "Ethernet1: goodbye by root: 3 frames in 0.2 ms, link unchanged (so)" } };
   for ( auto const & [ ending, line ] : lines ) {
      record.ending = ending;
      EXPECT_EQ( record.summary(), line );
   }
   EXPECT_EQ( lines.size(), enumTexts( ShutdownRecord::Ending() ).size() );
}

TEST( ShutdownRecordTest, TheSummaryNamesWhoAskedAndWhy ) {
   auto record = delayedShutdown();
   record.request.login = "alice";
   record.request.reason = "new optics";
   EXPECT_EQ( record.summary(),
              "Ethernet1: shutdown by root (login alice), reason \"new optics\": 3 frames in 0.2 "
              "ms, held 500 ms, link down, total 501 ms" );
}

TEST( ShutdownRecordTest, AnEndingIsReadBackFromItsText ) {
   for ( auto const & row : enumTexts( ShutdownRecord::Ending() ) ) {
      auto record = delayedShutdown();
      record.ending = row.value;
      EXPECT_STREQ( record.endingText(), row.text );
      EXPECT_EQ( endingOf( row.text ), row.value );
   }
   EXPECT_EQ( endingOf( "color" ), Ending::running );
}

TEST( ShutdownRecordTest, NotesAreSeparatedBySemicolons ) {
   ShutdownRecord record;
   record.note( "" );
   EXPECT_EQ( record.why, "" );
   record.note( "one" );
   record.note( "" );
   record.note( "two" );
   EXPECT_EQ( record.why, "one; two" );
}

TEST( ShutdownRecordTest, TheSummaryNamesWhatWasMutedAndGreeted ) {
   auto record = delayedShutdown();
   record.muted = { { "lldp", "port eth1", 1, false },
                    { "vrrp", "virtual router 7", 6, false },
                    { "vrrp", "virtual router 8", 5, false } };
   EXPECT_EQ( record.summary(),
              "Ethernet1: shutdown by root: 3 frames in 0.2 ms, held 500 ms, muted "
              "lldp, vrrp (12 frames held back), link down, total 501 ms" );
   record.muted = { { "lldp", "", 0, true }, { "vrrp", "", 0, false } };
   record.ending = Ending::aborted;
   record.why = "enabled after 120 ms";
   EXPECT_EQ( record.summary(),
              "Ethernet1: shutdown aborted: enabled after 120 ms; muted lldp, vrrp, greeted lldp" );
}

TEST( ShutdownRecordTest, TheSummaryNamesWhyNothingWasMuted ) {
   auto record = delayedShutdown();
   record.notMuted = "its filter is not attached yet";
   EXPECT_EQ(
      record.summary(),
      "Ethernet1: shutdown by root: 3 frames in 0.2 ms, held 500 ms, not muted: its filter is "
      "not attached yet, link down, total 501 ms" );
   EXPECT_EQ( delayedShutdown().mutedText(), "" );
}

} // namespace
} // namespace Valend
