#include "tests/valenctl/CommandLine.h"
#include "valenctl/text/JsonFields.h"

#include <CLI/CLI.hpp>

namespace Valenctl::Test {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

class CommandsTest : public CommandLine {};

TEST_F( CommandsTest, AnInvalidCommandLineIsAUsageErrorOnStandardError ) {
   for ( auto const & words : std::vector< Words >{ {},
                                                    { "juggle" },
                                                    { "shutdown" },
                                                    { "messages" },
                                                    { "frame" },
                                                    { "config" },
                                                    { "status", "--color" },
                                                    { "--timeout", "-1", "status" },
                                                    { "status", "a", "b" },
                                                    { "trace", "nothing" } } ) {
      EXPECT_EQ( run( words ), Exit::usage );
      EXPECT_EQ( out, "" );
      EXPECT_NE( err, "" );
   }
   EXPECT_TRUE( daemon.calls().empty() );
}

// Every command below `app`, with the words that name it.
void forEachCommand( CLI::App const & app, Words const & words,
                     std::function< void( Words const & ) > const & use ) {
   use( words );
   for ( auto const * command : app.get_subcommands( {} ) ) {
      if ( !command->get_name().empty() ) {
         auto below = words;
         below.push_back( command->get_name() );
         forEachCommand( *command, below, use );
      }
   }
}

TEST_F( CommandsTest, EveryCommandHasHelp ) {
   Commands const commands;
   std::size_t count = 0;
   forEachCommand( commands.app(), {}, [ & ]( Words words ) {
      words.push_back( "--help" );
      EXPECT_EQ( run( words ), Exit::done );
      EXPECT_EQ( err, "" );
      words.pop_back();
      std::string name = "valenctl";
      for ( auto const & word : words ) {
         name += " " + word;
      }
      EXPECT_THAT( out, HasSubstr( "\nUsage: " + name + " [OPTIONS]" ) );
      ++count;
   } );
   EXPECT_GT( count, 30u );
}

TEST_F( CommandsTest, HelpExplainsEachExitStatus ) {
   run( { "--help" } );
   for ( auto const * status : { "\nExit status: 0 success\n", " 1 the request failed",
                                 " 2 invalid", " 3 cannot connect", " 4 no answer in time" } ) {
      EXPECT_THAT( out, HasSubstr( status ) );
   }
}

TEST_F( CommandsTest, CommonOptionsMayFollowTheCommand ) {
   daemon.answers( "Status", { Json::object() } );
   daemon.answers( "TraceLevels", { { { "levels", "*/0" } } } );
   EXPECT_EQ( runAlone( { "valenctl", "status", "--socket", daemon.path() } ), Exit::done );
   EXPECT_EQ( runAlone( { "valenctl", "trace", "levels", "--socket", daemon.path() } ),
              Exit::done );
   EXPECT_EQ( out, "*/0\n" );
}

TEST_F( CommandsTest, ARejectedRequestIsAFailureWithTheDaemonsText ) {
   daemon.rejects( "Status", "NoSuchInterface", { { "message", "no interface \"x\"" } } );
   EXPECT_EQ( run( { "status", "x" } ), Exit::failed );
   EXPECT_EQ( err, "valenctl: no interface \"x\"\n" );
   EXPECT_EQ( out, "" );
}

TEST_F( CommandsTest, WithoutADaemonTheErrorSaysWhatToDo ) {
   auto const socket = daemon.path() + "-none";
   EXPECT_EQ( runAlone( { "valenctl", "status", "--socket", socket } ), Exit::notConnected );
   EXPECT_EQ( err, "valenctl: cannot connect to valend at " + socket +
                      ": No such file or directory (is it running?)\n" );
}

TEST_F( CommandsTest, AConnectionThatEndsIsNotConnected ) {
   EXPECT_EQ( run( { "status" } ), Exit::notConnected ); // nothing to answer with
   EXPECT_THAT( err, StartsWith( "valenctl: " ) );
}

TEST_F( CommandsTest, ADaemonThatDoesNotAnswerTimesOut ) {
   daemon.ignores( "Status" );
   EXPECT_EQ( run( { "--timeout", "0.05", "status" } ), Exit::timedOut );
   EXPECT_EQ( err, "valenctl: valend did not answer within 50 ms\n" );
}

TEST_F( CommandsTest, CompletionListsWhatMayComeNext ) {
   EXPECT_EQ( runAlone( { "valenctl", "complete", "trace", "f" } ), Exit::done );
   EXPECT_EQ( out, "follow\tShow trace lines as they are written\n" );
   runAlone( { "valenctl", "complete", "config", "check", "" } );
   EXPECT_EQ( out, "\tfile\n" ) << "names of files are left to the shell";
}

TEST_F( CommandsTest, CompletionAsksTheDaemonForInterfaces ) {
   daemon.answers( "List", { { { "interfaces", { "Ethernet1", "Ethernet2", "Vlan7" } } } } );
   auto const complete = [ & ]( Words words ) {
      words.insert( words.begin(), { "valenctl", "complete", "--socket", daemon.path() } );
      EXPECT_EQ( runAlone( words ), Exit::done );
      EXPECT_EQ( err, "" );
      return out;
   };
   EXPECT_EQ( complete( { "shutdown", "Eth" } ), "Ethernet1\tinterface\nEthernet2\tinterface\n" );
   EXPECT_EQ( complete( { "shutdown", "Vlan7", "--wait", "Ethernet2" } ),
              "Ethernet2\tinterface\n" );
   EXPECT_EQ( complete( { "frame", "oam", "--queue", "V" } ), "Vlan7\tinterface\n" );
   daemon.rejects( "List", "PermissionDenied", Json::object() );
   EXPECT_EQ( complete( { "status", "E" } ), "" );
}

} // namespace
} // namespace Valenctl::Test
