#include "valend/shutdown/ShutdownLog.h"

#include "valend/base/MessageIds.h"

#include <gmock/gmock.h>
#include <map>

namespace Valend {
namespace {

using namespace std::chrono_literals;
using ::testing::Contains;
using ::testing::Pair;
using Ending = ShutdownRecord::Ending;

ShutdownRecord shutdown() {
   ShutdownRecord record;
   record.interface = "Ethernet1";
   record.place = { "default", "et1" };
   record.request.by = "root";
   record.withDelay = true;
   record.sent = 3;
   record.held = 500ms;
   record.total = 501ms;
   record.ending = Ending::down;
   return record;
}

TEST( ShutdownLogTest, AFailureIsAWarning ) {
   for ( auto const & row : enumTexts( ShutdownRecord::Ending() ) ) {
      auto record = shutdown();
      record.ending = row.value;
      bool const warning = row.value == Ending::failed || row.value == Ending::wentDown ||
                           row.value == Ending::expired;
      EXPECT_EQ( levelOf( record ), warning ? LogLevel::warning : LogLevel::info ) << row.text;
   }
}

TEST( ShutdownLogTest, FramesThatDidNotLeaveAreAWarning ) {
   auto refused = shutdown();
   refused.failed = 1;
   EXPECT_EQ( levelOf( refused ), LogLevel::warning );
   auto unflushed = shutdown();
   unflushed.unflushedBytes = 60;
   EXPECT_EQ( levelOf( unflushed ), LogLevel::warning );
}

TEST( ShutdownLogTest, EachShutdownHasTheseFields ) {
   EXPECT_EQ( fieldsOf( shutdown() ), ( LogFields{ { "MESSAGE_ID", MessageIds::shutdownDone },
                                                   { "INTERFACE", "et1" },
                                                   { "VALEN_INTERFACE", "Ethernet1" },
                                                   { "VALEN_NAMESPACE", "default" },
                                                   { "VALEN_ENDING", "down" },
                                                   { "VALEN_BY", "root" },
                                                   { "VALEN_SENT", "3" },
                                                   { "VALEN_FAILED", "0" },
                                                   { "VALEN_HELD_MS", "500" },
                                                   { "VALEN_TOTAL_MS", "501" },
                                                   { "VALEN_UNFLUSHED_BYTES", "0" },
                                                   { "VALEN_RESUMED", "0" } } ) );
}

TEST( ShutdownLogTest, SomeShutdownsHaveMoreFields ) {
   auto record = shutdown();
   record.why = "so";
   record.failReason = "Network is down";
   record.resumed = true;
   record.request.login = "alice";
   record.request.reason = "new optics";
   EXPECT_THAT( fieldsOf( record ), Contains( Pair( "VALEN_LOGIN", "alice" ) ) );
   EXPECT_THAT( fieldsOf( record ), Contains( Pair( "VALEN_REASON", "new optics" ) ) );
   EXPECT_THAT( fieldsOf( record ), Contains( Pair( "VALEN_WHY", "so" ) ) );
   EXPECT_THAT( fieldsOf( record ), Contains( Pair( "VALEN_FAIL_REASON", "Network is down" ) ) );
   EXPECT_THAT( fieldsOf( record ), Contains( Pair( "VALEN_RESUMED", "1" ) ) );
}

TEST( ShutdownLogTest, EachKindOfEventHasItsMessageId ) {
   std::map< Ending, std::string > const ids{ { Ending::running, MessageIds::shutdownDone },
                                              { Ending::down, MessageIds::shutdownDone },
                                              { Ending::aborted, MessageIds::shutdownAborted },
                                              { Ending::alreadyDown, MessageIds::shutdownDone },
                                              { Ending::noDevice, MessageIds::shutdownFailed },
                                              { Ending::failed, MessageIds::shutdownFailed },
                                              { Ending::wentDown, MessageIds::setDownOutside },
                                              { Ending::rebooted, MessageIds::shutdownExpired },
                                              { Ending::expired, MessageIds::shutdownExpired },
                                              { Ending::goodbye, MessageIds::goodbye } };
   for ( auto const & row : enumTexts( Ending() ) ) {
      auto record = shutdown();
      record.ending = row.value;
      EXPECT_EQ( messageIdOf( record ), ids.at( row.value ) ) << row.text;
      EXPECT_EQ( ids.at( row.value ).size(), 32u );
   }
}

} // namespace
} // namespace Valend
