#include "valend/shutdown/ShutdownJson.h"

#include <gtest/gtest.h>

namespace Valend {
namespace {

using namespace std::chrono_literals;
using Json = nlohmann::json;

// A record in which every field has a value of its own.
ShutdownRecord record() {
   ShutdownRecord record;
   record.interface = "Ethernet1";
   record.place = { "ns-red", "et1" };
   record.request = { "root", "alice", "new optics", 700ms };
   record.when = std::chrono::system_clock::time_point( 1234567ms );
   record.withDelay = true;
   record.resumed = true;
   record.sent = 3;
   record.failed = 1;
   record.failReason = "Network is down";
   record.agents = { { "lldp", 2, {}, { { "lldp", "port eth1" }, { "cdp", "eth1" } } },
                     { "bgp", 1, { { 100, 1 } }, {} } };
   record.sending = 200us;
   record.held = 500ms;
   record.total = 501ms;
   record.unflushedBytes = 7;
   record.ending = ShutdownRecord::Ending::down;
   record.why = "so";
   record.count = 12;
   record.until = std::chrono::system_clock::time_point( 2345678ms );
   return record;
}

TEST( ShutdownJsonTest, ARecordIsReadBackAsWritten ) {
   EXPECT_EQ( recordFromJson( toJson( record() ) ), record() );
   ShutdownRecord const plain;
   EXPECT_EQ( recordFromJson( toJson( plain ) ), plain );
}

TEST( ShutdownJsonTest, TimesHaveTheirUnitInTheirNames ) {
   auto const json = toJson( record() );
   EXPECT_EQ( json[ "whenMs" ], 1234567 );
   EXPECT_EQ( json[ "untilMs" ], 2345678 );
   EXPECT_EQ( json[ "sendingUs" ], 200 );
   EXPECT_EQ( json[ "heldMs" ], 500 );
   EXPECT_EQ( json[ "totalMs" ], 501 );
}

TEST( ShutdownJsonTest, WhatHappenedOnceHasNoLastTime ) {
   auto json = toJson( ShutdownRecord() );
   EXPECT_EQ( json[ "count" ], 1 );
   EXPECT_TRUE( json[ "untilMs" ].is_null() );
   json.erase( "count" ); // as in older journals
   json.erase( "untilMs" );
   EXPECT_EQ( recordFromJson( json ), ShutdownRecord() );
}

TEST( ShutdownJsonTest, AnEmptyTextIsNull ) {
   auto const json = toJson( ShutdownRecord() );
   EXPECT_TRUE( json[ "why" ].is_null() );
   EXPECT_TRUE( json[ "failReason" ].is_null() );
   EXPECT_TRUE( json[ "login" ].is_null() );
   EXPECT_TRUE( json[ "reason" ].is_null() );
   EXPECT_TRUE( json[ "requestedDelayMs" ].is_null() );
}

TEST( ShutdownJsonTest, RefusedFramesAreListedByError ) {
   EXPECT_EQ( toJson( record() )[ "agents" ][ 1 ],
              Json::parse( R"({ "agent": "bgp", "sent": 1, "goodbyes": [], "refused":
                                [ { "errno": 100, "reason": "Network is down", "count": 1 } ] })" ) );
}

// But for those that the journals of older versions lack.
TEST( ShutdownJsonTest, ARecordThatLacksAFieldIsAnError ) {
   auto const whole = toJson( record() );
   for ( auto const & [ name, value ] : whole.items() ) {
      auto json = whole;
      json.erase( name );
      if ( name == "count" || name == "muted" || name == "notMuted" || name == "requestId" ) {
         continue;
      }
      EXPECT_THROW( recordFromJson( json ), Json::exception ) << name;
   }
}

TEST( ShutdownJsonTest, AnOlderJournalHasNoGoodbyes ) {
   auto json = toJson( record() );
   auto older = record();
   for ( auto & agent : json[ "agents" ] ) {
      agent.erase( "goodbyes" );
   }
   for ( auto & agent : older.agents ) {
      agent.goodbyes.clear();
   }
   EXPECT_EQ( recordFromJson( json ), older );
}

} // namespace
} // namespace Valend
