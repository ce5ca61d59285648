#include "valend/database/Alive.h"

#include "tests/valend/database/DatabaseFixture.h"

namespace Valend {
namespace {

using namespace Test;

class AliveTest : public DatabaseFixture {
 protected:
   void SetUp() override {
      connection.start();
      ASSERT_TRUE( becomes( "alive", "state", "first" ) );
   }
   Database::Fields fields() {
      if ( std::exchange( emptyNow, false ) ) {
         server( { "FLUSHALL" } );
      }
      return { { "state", state } };
   }

   std::string state = "first";
   bool emptyNow = false; // between the look and the writing
   int missing = 0;
   Database::Connection connection{
      loop,
      { .address = Database::Address::parse( server.url() ), .name = "test" },
      { .connected = [ this ] { alive.up(); },
        .lost = [ this ]( std::string const & ) { alive.lost(); } } };
   Alive alive{ clock.scheduler(),
                connection,
                "valen:rtr1",
                [ this ] { return fields(); },
                [ this ] { ++missing; },
                []( std::string const & why ) { EXPECT_EQ( why, "" ); } };
};

TEST_F( AliveTest, NothingIsMissingWhenItsFieldsChange ) {
   state = "second";
   ASSERT_TRUE( becomes( "alive", "state", "second" ) );
   stepFor( 3 * Alive::period );
   EXPECT_EQ( missing, 0 );
}

TEST_F( AliveTest, AServerThatIsEmptiedIsNoticedOnce ) {
   server( { "FLUSHALL" } );
   ASSERT_TRUE( becomes( "alive", "state", "first" ) );
   stepFor( 3 * Alive::period );
   EXPECT_EQ( missing, 1 );
}

TEST_F( AliveTest, AServerThatIsEmptiedBeforeTheSignIsWrittenAgainIsNoticed ) {
   state = "second";
   emptyNow = true;
   ASSERT_TRUE( becomes( "alive", "state", "second" ) );
   EXPECT_TRUE( eventually( [ this ] { return missing == 1; } ) );
}

TEST_F( AliveTest, AServerThatIsEmptiedWhileTheConnectionIsLostIsNoticed ) {
   server( { "CLIENT", "KILL", "TYPE", "normal", "SKIPME", "yes" } );
   server( { "FLUSHALL" } );
   ASSERT_TRUE( becomes( "alive", "state", "first" ) );
   EXPECT_TRUE( eventually( [ this ] { return missing == 1; } ) );
}

} // namespace
} // namespace Valend
