#include "settings/Version.h"
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

TEST_F( CommandsTest, HelpRefersToTheManPageForExitStatuses ) {
   run( { "--help" } );
   EXPECT_THAT( out, HasSubstr( "\nSee valenctl(1) for exit statuses and examples.\n" ) );
}

TEST_F( CommandsTest, TheVersionIsThatOfValen ) {
   EXPECT_EQ( run( { "--version" } ), Exit::done );
   EXPECT_EQ( out, std::string( "valenctl " ) + Settings::version + "\n" );
   EXPECT_EQ( err, "" );
}

TEST_F( CommandsTest, AnUnknownWordIsNamedWithTheNearestOne ) {
   EXPECT_EQ( run( { "statsu" } ), Exit::usage );
   EXPECT_EQ( err, "valenctl: unknown command \"statsu\"; did you mean \"status\"?\n"
                   "Run \"valenctl --help\" for more information.\n" );
   EXPECT_EQ( run( { "frame", "ldp", "--port-id", "name:x" } ), Exit::usage );
   EXPECT_EQ( err, "valenctl: unknown frame kind \"ldp\"; did you mean \"lldp\"?\n"
                   "Run \"valenctl frame --help\" for more information.\n" );
   EXPECT_EQ( run( { "wait", "Vlan7", "--untl=up" } ), Exit::usage );
   EXPECT_EQ( err, "valenctl: unknown option \"--untl\"; did you mean \"--until\"?\n"
                   "Run \"valenctl wait --help\" for more information.\n" );
   EXPECT_EQ( run( { "juggle" } ), Exit::usage );
   EXPECT_EQ( err, "valenctl: unknown command \"juggle\"\n"
                   "Run \"valenctl --help\" for more information.\n" );
}

TEST_F( CommandsTest, AFailureIsAlsoAnObjectWithJson ) {
   auto const error = [ & ]( Words words ) {
      words.push_back( "--json" );
      EXPECT_NE( run( words ), Exit::done );
      EXPECT_THAT( err, StartsWith( "valenctl: " ) );
      EXPECT_EQ( std::count( out.begin(), out.end(), '\n' ), 1 );
      return Json::parse( out );
   };
   auto const own = []( std::string const & name, std::string const & message ) {
      return Json{ { "error", "org.valen.valenctl." + name },
                   { "parameters", { { "message", message } } } };
   };
   daemon.rejects( "Status", "NoSuchInterface",
                   { { "message", "no interface \"x\"" }, { "interface", "x" } } );
   EXPECT_EQ(
      error( { "status", "x" } ),
      ( Json{ { "error", "org.valen.daemon.NoSuchInterface" },
              { "parameters", { { "message", "no interface \"x\"" }, { "interface", "x" } } } } ) );
   daemon.rejects( "Status", "Odd", Json::object() );
   EXPECT_EQ( error( { "status", "x" } )[ "parameters" ].size(), 1u ) << "always has a message";
   daemon.ignores( "Status" );
   EXPECT_EQ( error( { "--timeout", "0.05", "status" } ),
              own( "TimedOut", "valend did not answer within 50 ms" ) );
   EXPECT_EQ( error( { "statsu" } ),
              own( "InvalidCommand", "unknown command \"statsu\"; did you mean \"status\"?" ) );
   EXPECT_EQ( error( { "frame", "oam" } )[ "error" ], "org.valen.valenctl.InvalidCommand" );
   EXPECT_EQ( error( { "frame", "oam", "--device", "vt-none" } ),
              own( "Failed", "there is no device vt-none" ) );
   EXPECT_EQ( error( { "list" } )[ "error" ], "org.valen.valenctl.NotConnected" );
}

TEST_F( CommandsTest, AFailureIsNotOnStandardOutputWithoutJson ) {
   EXPECT_EQ( run( { "show", "--", "--json" } ), Exit::notConnected ) << "a path, not an option";
   EXPECT_EQ( out, "" );
   EXPECT_EQ( run( { "statsu", "--", "--json" } ), Exit::usage );
   EXPECT_EQ( out, "" );
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

TEST_F( CommandsTest, CompletionAsksTheDaemonForNames ) {
   auto const interface = []( char const * name, char const * device, char const * vrf ) {
      return Json{ { "name", name }, { "device", device }, { "vrf", vrf } };
   };
   daemon.answers( "Status", { { { "interfaces",
                                   { interface( "Ethernet1", "eth1", "default" ),
                                     interface( "Ethernet2", "eth2", "red" ),
                                     interface( "Vlan7", "eth1", "red" ) } },
                                 { "vrfs",
                                   { { { "name", "default" }, { "namespace", "default" } },
                                     { { "name", "red" }, { "namespace", "ns-red" } } } } } } );
   auto const queued = []( char const * agent, char const * on, char const * lifetime ) {
      return Json{ { "agent", agent }, { "interface", on }, { "lifetime", lifetime } };
   };
   daemon.answers( "ListMessages", { { { "messages",
                                         { queued( "lldp", "Ethernet1", "configuration" ),
                                           queued( "learned-ra", "Ethernet1", "learned" ),
                                           queued( "bgp", "Ethernet1", "kept" ),
                                           queued( "bgp", "Vlan7", "connection" ) } } } } );
   auto const complete = [ & ]( Words words ) {
      words.insert( words.begin(), { "valenctl", "complete", "--socket", daemon.path() } );
      EXPECT_EQ( runAlone( words ), Exit::done );
      EXPECT_EQ( err, "" );
      return out;
   };
   EXPECT_EQ( complete( { "shutdown", "Eth" } ), "Ethernet1\tdevice eth1, VRF default\n"
                                                 "Ethernet2\tdevice eth2, VRF red\n" );
   EXPECT_EQ( complete( { "shutdown", "Vlan7", "--wait", "Ethernet2" } ),
              "Ethernet2\tdevice eth2, VRF red\n" );
   EXPECT_EQ( complete( { "frame", "oam", "--queue", "V" } ), "Vlan7\tdevice eth1, VRF red\n" );
   EXPECT_EQ( complete( { "list", "--vrf", "" } ),
              "default\tnamespace default\nred\tnamespace ns-red\n" );
   EXPECT_EQ( complete( { "shutdown", "--device", "" } ),
              "eth1\tdevice of Ethernet1, Vlan7\neth2\tdevice of Ethernet2\n" );
   EXPECT_EQ( complete( { "messages", "remove", "" } ), "bgp\tframes for Ethernet1, Vlan7\n" );
   daemon.rejects( "Status", "PermissionDenied", Json::object() );
   EXPECT_EQ( complete( { "status", "E" } ), "" );
}

TEST_F( CommandsTest, CompletionAsksTheKernelForDevices ) {
   runAlone( { "valenctl", "complete", "frame", "lldp", "--device", "l" } );
   EXPECT_THAT( out, HasSubstr( "lo\tdevice\n" ) );
   EXPECT_EQ(
      runAlone( { "valenctl", "complete", "frame", "oam", "--netns", "vt-none", "--device", "" } ),
      Exit::done );
   EXPECT_EQ( out, "" ) << "a namespace that does not exist has no devices";
}

} // namespace
} // namespace Valenctl::Test
