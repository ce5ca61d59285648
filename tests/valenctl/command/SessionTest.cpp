#include "valenctl/command/Session.h"

#include "tests/valenctl/FakeDaemon.h"

#include <sstream>

namespace Valenctl::Test {
namespace {

class SessionTest : public ::testing::Test {
 protected:
   Session session( std::string const & socket, Format format = Format::text ) {
      return Session( { socket, std::chrono::milliseconds( 50 ) }, { out, err, {}, format } );
   }
   // Why a connection to `socket` is not possible.
   std::string errorAt( std::string const & socket ) {
      try {
         session( socket ).client();
      } catch ( Varlink::NoService const & e ) {
         return e.what();
      }
      return "";
   }

   FakeDaemon daemon;
   std::ostringstream out;
   std::ostringstream err;
};

TEST_F( SessionTest, TheFirstCallConnects ) {
   auto const unused = session( "/nowhere" ); // no error yet
   daemon.answers( "List", { { { "a", 1 } } } );
   auto used = session( daemon.path() );
   EXPECT_EQ( used.call( "List", { { "vrf", "red" } } ), ( Json{ { "a", 1 } } ) );
   EXPECT_EQ( daemon.calls(),
              ( std::vector< FakeDaemon::Call >{ { "List", { { "vrf", "red" } }, false } } ) );
}

TEST_F( SessionTest, AnErrorNamesTheSocketAndWhatToDo ) {
   EXPECT_EQ( errorAt( daemon.path() + "-none" ),
              "cannot connect to valend at " + daemon.path() +
                 "-none: No such file or directory (is it running?)" );
   EXPECT_EQ( errorAt( std::string( 200, 's' ) ),
              "cannot connect to valend at " + std::string( 200, 's' ) + ": File name too long" );
}

TEST_F( SessionTest, TheTimeoutIsTheOperatorsUntilTheCommandSetsAnother ) {
   auto used = session( daemon.path() );
   EXPECT_EQ( used.answerTimeout(), std::chrono::milliseconds( 50 ) );
   daemon.ignores( "Status" );
   EXPECT_THROW( used.call( "Status" ), Varlink::TimedOut );
   used.answerTimeoutIs( std::chrono::milliseconds( 1 ) );
   EXPECT_EQ( used.answerTimeout(), std::chrono::milliseconds( 1 ) );
   EXPECT_EQ( used.timeout(), std::chrono::milliseconds( 50 ) );
}

TEST_F( SessionTest, AnAnswerIsPrintedAsTextOrJson ) {
   session( "" ).print( { { "a", 1 } }, "text\n" );
   EXPECT_EQ( out.str(), "text\n" );
   session( "", Format::json ).print( { { "a", 1 } }, "text\n" );
   EXPECT_EQ( out.str(), "text\n{\n  \"a\": 1\n}\n" );
}

TEST_F( SessionTest, OneInterfaceIsAParameterAllAreNone ) {
   EXPECT_EQ( interfaceParameter( "a" ), ( Json{ { "interface", "a" } } ) );
   EXPECT_EQ( interfaceParameter( "" ), Json::object() );
}

} // namespace
} // namespace Valenctl::Test
