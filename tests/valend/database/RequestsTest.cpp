#include "valend/database/Requests.h"

#include "tests/valend/shutdown/ResumeFixture.h"
#include "valend/configuration/DatabaseText.h"

#include <algorithm>
#include <future>
#include <random>

namespace Valend {
namespace {

using namespace Test;
using ::testing::AllOf;
using ::testing::Each;

// One run of valend with a database. Its end is a crash: what is not on the disk then is lost.
class DatabaseRun {
 public:
   using Results = std::vector< std::string >;

   DatabaseRun( std::string const & directory, std::chrono::milliseconds uptime )
       : run( directory + "/journal", uptime ),
         state( directory + "/requests", []( auto const & ) {} ),
         worker( std::in_place, loop, "test" ),
         file( std::in_place, state, run.conditions, *worker, run.clock.scheduler() ),
         requests( { run.controller, run.feeder.config(), *file, [] { return U64( 10000 ); },
                     [ this ] { return settled; } },
                   loop.workQueue(), run.clock.scheduler() ) {
      requests.resultIs( [ this ]( auto const & interface, auto const & id, auto const & result ) {
         results.push_back( interface + " " + id + ": " + result );
         last[ interface ] = { id, result };
      } );
   }
   ~DatabaseRun() {
      file.reset();
      worker.reset();
   }

   void start( Settings::Config const & config ) {
      run.startAndResume( config );
      requests.resume();
   }
   void want( std::string const & interface, Settings::Fields const & fields ) {
      requests.entityIs( "want:" + interface, fields );
   }
   // Lets the worker end what it does, and `duration` pass.
   void pass( std::chrono::milliseconds duration = 0ms ) {
      for ( auto left = duration;; left -= 1ms ) {
         bool saved = false;
         file->whenSaved( [ & ] { saved = true; } );
         auto const end = std::chrono::steady_clock::now() + 20s;
         do {
            loop.turn( saved ? 0ms : 1ms );
            run.turn();
         } while ( !saved && std::chrono::steady_clock::now() < end );
         EXPECT_TRUE( saved );
         loop.turn( 0ms ); // for what waited for it
         loop.turn( 0ms );
         run.turn();
         if ( left <= 0ms ) {
            return;
         }
         run.advance( 1ms );
      }
   }
   std::string result( std::string const & interface ) { return last[ interface ].second; }
   void linkIs( bool up ) { run.kernel.at( "default", "et1" ).up = up; }

   DaemonRun run;
   bool settled = true;
   Results results;
   std::map< std::string, std::pair< std::string, std::string > > last; // by interface
   StateDirectory state;
   Valen::Linux::EventLoop loop{ run.clock.scheduler() };
   std::optional< Valen::Linux::Worker > worker;
   std::optional< RequestsFile > file;
   Requests requests;
};

class RequestsTest : public ::testing::Test {
 protected:
   RequestsTest() {
      work.directory( "journal" );
      work.directory( "requests" );
   }
   DatabaseRun & start( std::chrono::milliseconds uptime = 0ms,
                        Settings::Config const & config = DaemonRun::twoInterfaces() ) {
      current.emplace( work.path(), uptime );
      current->start( config );
      current->pass();
      return *current;
   }
   // The files are as they are at this moment, whatever is written afterwards.
   void crash() {
      std::map< std::string, std::string > files;
      for ( auto const * name : { "journal/shutdowns", "requests/requests" } ) {
         if ( work.has( name ) ) {
            files[ name ] = work.content( name );
         }
      }
      current.reset();
      for ( auto const & [ name, content ] : files ) {
         work.write( name, content );
      }
   }
   static Settings::Fields down( std::string const & id ) {
      return { { "link", "down" }, { "id", id }, { "by", "alice" }, { "reason", "maintenance" } };
   }
   static Settings::Fields up( std::string const & id ) {
      return { { "link", "up" }, { "id", id } };
   }

   Valen::Test::WorkDirectory work;
   std::optional< DatabaseRun > current;
};

TEST_F( RequestsTest, AShutdownIsRequestedAndItsResultTold ) {
   auto & run = start();
   run.want( "Ethernet1", down( "1" ) );
   run.pass( 100ms );
   EXPECT_EQ( run.result( "Ethernet1" ), "running" );
   EXPECT_TRUE( run.run.delayed( "Ethernet1" ) );
   run.pass( 500ms );
   EXPECT_THAT( run.results, ElementsAre( "Ethernet1 1: running", "Ethernet1 1: down" ) );
   auto const & request = run.run.last().request;
   EXPECT_EQ( request.by, "database" );
   EXPECT_EQ( request.login, "alice" );
   EXPECT_EQ( request.reason, "maintenance" );
   EXPECT_EQ( request.id, "1" );
   run.want( "Ethernet1", down( "1" ) ); // read again
   run.pass( 600ms );
   EXPECT_EQ( run.results.size(), 2u );
   run.want( "Ethernet1", down( "2" ) );
   run.pass( 1ms );
   EXPECT_EQ( run.result( "Ethernet1" ), "already-down" );
   run.want( "Ethernet1", up( "3" ) );
   run.pass( 1ms );
   EXPECT_EQ( run.result( "Ethernet1" ), "up" );
   run.want( "Ethernet1", up( "4" ) );
   run.pass( 1ms );
   EXPECT_EQ( run.result( "Ethernet1" ), "already-up" );
}

TEST_F( RequestsTest, AWantOfTheLinkUpAborts ) {
   auto & run = start();
   auto fields = down( "1" );
   fields[ "delay-ms" ] = "2000";
   run.want( "Ethernet1", fields );
   run.pass( 1500ms );
   EXPECT_EQ( run.result( "Ethernet1" ), "running" );
   run.want( "Ethernet1", up( "2" ) );
   run.pass( 1ms );
   EXPECT_EQ( run.result( "Ethernet1" ), "aborted" );
   EXPECT_EQ( run.last[ "Ethernet1" ].first, "2" );
   EXPECT_EQ( run.run.last().ending, Ending::aborted );
   EXPECT_THAT( run.run.kernel.actions, IsEmpty() );
}

TEST_F( RequestsTest, WhatCannotBeDoneIsRejectedOnce ) {
   auto & run = start();
   auto const expect = [ & ]( Settings::Fields const & fields, std::string const & result ) {
      run.results.clear();
      run.want( "Ethernet1", fields );
      run.pass( 1ms );
      EXPECT_THAT( run.results, ElementsAre( "Ethernet1 " + result ) );
   };
   expect( { { "link", "down" } }, ": rejected: no id; expected 1 to 64 bytes" );
   expect( { { "link", "down" }, { "id", std::string( 65, 'i' ) } },
           ": rejected: id has 65 bytes; expected at most 64" );
   expect( { { "id", "1" } }, "1: rejected: link is \"\"; expected up or down" );
   expect( { { "id", "2" }, { "link", "down" }, { "delay-ms", "1s" } },
           "2: rejected: delay-ms is \"1s\"; expected milliseconds" );
   expect(
      { { "id", "3" }, { "link", "down" }, { "delay-ms", "10001" } },
      "3: rejected: a delay of 10001 ms exceeds the limit of 10000 ms (max-shutdown-delay-ms)" );
   expect( { { "id", "4" }, { "link", "down" }, { "reason", "a\nb" } },
           "4: rejected: reason is not printable text: character 2 is U+000A" );
   expect( { { "id", "5" }, { "link", "down" }, { "by", std::string( 256, 'b' ) } },
           "5: rejected: by has 256 bytes; expected at most 255" );
   run.results.clear();
   run.want( "Ethernet1", { { "id", "5" }, { "link", "down" } } );
   run.pass( 1ms );
   EXPECT_THAT( run.results, IsEmpty() ) << "the id was acted on";
   run.requests.entityIs( "config:delay", {} );
   EXPECT_THAT( run.run.kernel.actions, IsEmpty() );
}

TEST_F( RequestsTest, AnInterfaceMayComeUntilTheConfigurationIsSettled ) {
   auto & run = start( 0ms, Settings::Config() );
   run.settled = false;
   run.want( "Ethernet1", down( "1" ) );
   run.want( "Ethernet2", down( "1" ) );
   run.want( "Ethernet3", down( "1" ) );
   run.pass( 5000ms );
   EXPECT_THAT( run.results, IsEmpty() );
   auto config = DaemonRun::twoInterfaces();
   config.interfaces.erase( "Ethernet2" );
   config.agents[ "lldp" ].erase( "Ethernet2" );
   run.run.feeder.apply( config );
   run.settled = true;
   run.requests.configSettled();
   run.pass( 600ms );
   EXPECT_EQ( run.result( "Ethernet1" ), "down" );
   EXPECT_EQ( run.result( "Ethernet2" ), "" );
   run.requests.entityGone( "want:Ethernet3" );
   run.pass( 1000ms );
   EXPECT_EQ( run.result( "Ethernet2" ), "rejected: no such interface" );
   EXPECT_EQ( run.result( "Ethernet3" ), "" ) << "it is not wanted any longer";
   EXPECT_EQ( run.result( "Ethernet1" ), "down" ) << "it was not acted on again";
}

TEST_F( RequestsTest, AnInterfaceThatCameUnnoticedIsFoundWhenTheTimeIsOver ) {
   auto & run = start( 0ms, Settings::Config() );
   run.want( "Ethernet1", down( "1" ) );
   run.run.feeder.apply( DaemonRun::twoInterfaces() );
   run.pass( Requests::graceTime + 100ms );
   EXPECT_EQ( run.result( "Ethernet1" ), "running" );
}

TEST_F( RequestsTest, AWantThatIsReplacedByAWrongOneIsDropped ) {
   auto & run = start( 0ms, Settings::Config() );
   run.want( "Ethernet1", down( "1" ) );
   run.want( "Ethernet1", { { "link", "down" } } );
   run.run.feeder.apply( DaemonRun::twoInterfaces() );
   run.requests.configSettled();
   run.pass( 600ms );
   EXPECT_THAT( run.results, ElementsAre( HasSubstr( "no id" ) ) );
   EXPECT_THAT( run.run.kernel.actions, IsEmpty() );
}

TEST_F( RequestsTest, AnInterfaceMayGoBeforeItsRequestIsActedOn ) {
   auto & run = start();
   run.want( "Ethernet1", down( "1" ) );
   run.run.feeder.apply( Settings::Config() );
   run.pass( 1ms );
   EXPECT_THAT( run.result( "Ethernet1" ), HasSubstr( "rejected: " ) );
}

TEST_F( RequestsTest, WhatFailsSaysWhy ) {
   auto & run = start();
   run.linkIs( false );
   run.run.kernel.upErrno = EPERM;
   run.want( "Ethernet1", up( "1" ) );
   run.pass( 1ms );
   EXPECT_THAT( run.result( "Ethernet1" ),
                AllOf( HasSubstr( "failed: " ), HasSubstr( "the kernel said 1" ) ) );
}

TEST_F( RequestsTest, RequestsOfInterfacesThatAreGoneAreForgotten ) {
   auto & run = start();
   run.want( "Ethernet9", down( "1" ) );
   run.want( "Ethernet1", up( "1" ) );
   run.pass( 1100ms );
   run.requests.entityGone( "want:Ethernet9" );
   run.requests.entityGone( "want:Ethernet1" );
   run.pass( 1ms );
   auto const kept = entitiesOfText( "requests", work.content( "requests/requests" ) );
   ASSERT_TRUE( kept );
   EXPECT_FALSE( kept->contains( "Ethernet9" ) );
   EXPECT_TRUE( kept->contains( "Ethernet1" ) );
   run.results.clear();
   run.want( "Ethernet9", down( "1" ) );
   run.want( "Ethernet1", up( "1" ) ); // was acted on
   run.pass( 1100ms );
   EXPECT_THAT( run.results, ElementsAre( "Ethernet9 1: rejected: no such interface" ) );
}

TEST_F( RequestsTest, ARequestIsOnTheDiskBeforeItIsActedOn ) {
   auto & run = start();
   std::promise< void > disk;
   run.worker->run( [ written = disk.get_future().share() ]() -> Valen::Linux::Worker::Work {
      written.wait();
      return nullptr;
   } );
   run.want( "Ethernet1", down( "1" ) );
   for ( int i = 0; i < 20; ++i ) {
      run.loop.turn( 1ms );
      run.run.turn();
   }
   EXPECT_FALSE( run.run.controller.running( "Ethernet1" ) );
   EXPECT_THAT( run.results, IsEmpty() );
   disk.set_value();
   run.want( "Ethernet1", up( "2" ) ); // which replaces it
   run.pass( 1ms );
   EXPECT_THAT( run.results, ElementsAre( "Ethernet1 2: already-up" ) );
   EXPECT_EQ( ::access( ( work / "requests/requests" ).c_str(), R_OK ), 0 );
}

TEST_F( RequestsTest, WithoutADiskRequestsAreActedOnAllTheSame ) {
   work.remove( "requests" );
   work.write( "requests", "not a directory" );
   auto & run = start();
   run.want( "Ethernet1", down( "1" ) );
   run.pass( 600ms );
   EXPECT_EQ( run.result( "Ethernet1" ), "down" );
   auto const raised = run.run.conditions.raised();
   EXPECT_TRUE( std::any_of( raised.begin(), raised.end(),
                             []( auto const & each ) { return each.name == "requests"; } ) );
   work.remove( "requests" );
   run.run.advance( RequestsFile::retryPeriod );
   run.pass( 1ms );
   EXPECT_FALSE( run.run.conditions.isRaised( "requests" ) );
   EXPECT_TRUE( work.has( "requests/requests" ) );
}

TEST_F( RequestsTest, WithoutAStateDirectoryNothingIsRecorded ) {
   auto & run = start();
   StateDirectory none( "", []( auto const & ) {} );
   RequestsFile file( none, run.run.conditions, *run.worker, run.run.clock.scheduler() );
   file.save( "Ethernet1", Settings::Fields{ { "id", "1" } } );
   bool saved = false;
   file.whenSaved( [ & ] { saved = true; } );
   EXPECT_TRUE( saved );
   EXPECT_FALSE( run.run.conditions.isRaised( "requests" ) );
}

TEST_F( RequestsTest, WhatWasActedOnIsNotRepeatedAfterARestart ) {
   start().want( "Ethernet1", down( "1" ) );
   current->pass( 600ms );
   current->want( "Ethernet1", up( "2" ) );
   current->want( "Ethernet9", down( "9" ) );
   current->pass( 1100ms );
   crash();
   auto & run = start( 5000ms );
   EXPECT_THAT( run.results,
                ElementsAre( "Ethernet1 2: up", "Ethernet9 9: rejected: no such interface" ) );
   run.linkIs( false ); // not by valend
   run.want( "Ethernet1", up( "2" ) );
   run.want( "Ethernet9", down( "9" ) );
   run.pass( 1500ms );
   EXPECT_THAT( run.run.kernel.actions, IsEmpty() );
   EXPECT_EQ( run.results.size(), 2u );
}

TEST_F( RequestsTest, AShutdownThatContinuesAfterARestartIsFollowed ) {
   start().want( "Ethernet1", down( "1" ) );
   current->pass( 100ms );
   EXPECT_EQ( current->result( "Ethernet1" ), "running" );
   crash();
   auto & run = start( 200ms );
   EXPECT_EQ( run.result( "Ethernet1" ), "running" );
   run.want( "Ethernet1", down( "1" ) );
   run.pass( 600ms );
   EXPECT_EQ( run.result( "Ethernet1" ), "down" );
   EXPECT_THAT( run.run.kernel.actions, ElementsAre( "down default/et1" ) );
}

TEST_F( RequestsTest, AShutdownThatEndedUnnoticedIsNotRepeated ) {
   start().want( "Ethernet1", down( "1" ) );
   current->pass( 100ms );
   auto const before = work.content( "requests/requests" );
   current->pass( 600ms );
   crash();
   work.write( "requests/requests", before );
   auto & run = start( 5000ms );
   EXPECT_EQ( run.result( "Ethernet1" ), "down" );
   run.want( "Ethernet1", down( "1" ) );
   run.pass( 600ms );
   EXPECT_THAT( run.results, Each( "Ethernet1 1: down" ) );
   EXPECT_THAT( run.run.kernel.actions, IsEmpty() );
}

TEST_F( RequestsTest, ARequestThatWasOnlyRecordedIsActedOnWhenItIsSeenAgain ) {
   start();
   work.write( "requests/requests", "" );
   crash();
   {
      StateDirectory state( work / "requests", []( auto const & ) {} );
      Valen::Test::SteppedClock clock;
      Conditions conditions{ []( auto, auto const & ) {} };
      Valen::Linux::EventLoop loop{ clock.scheduler() };
      Valen::Linux::Worker worker( loop, "test" );
      RequestsFile file( state, conditions, worker, clock.scheduler() );
      file.save( "Ethernet1", Settings::Fields{ { "id", "1" }, { "open", "yes" } } );
   }
   auto & run = start();
   run.pass( 100ms );
   EXPECT_THAT( run.results, IsEmpty() );
   EXPECT_FALSE( run.run.controller.running( "Ethernet1" ) );
   run.want( "Ethernet1", down( "1" ) );
   run.pass( 600ms );
   EXPECT_THAT( run.results, ElementsAre( "Ethernet1 1: running", "Ethernet1 1: down" ) );
}

TEST_F( RequestsTest, ADamagedFileIsSetAside ) {
   work.write( "requests/requests", "# no such thing\n" );
   ::testing::internal::CaptureStderr();
   auto & run = start();
   EXPECT_THAT( ::testing::internal::GetCapturedStderr(), HasSubstr( "requests.damaged" ) );
   run.want( "Ethernet1", down( "1" ) );
   run.pass( 600ms );
   EXPECT_EQ( run.result( "Ethernet1" ), "down" );
   EXPECT_TRUE( work.has( "requests/requests.damaged" ) );
}

// --- Any history ---------------------------------------------------------------------------------

class RequestsHistory : public RequestsTest, public ::testing::WithParamInterface< unsigned > {
 protected:
   struct Model {
      Settings::Fields fields;
      bool noticed = true;
   };
   static constexpr std::array interfaces{ "Ethernet1", "Ethernet2", "Ethernet9" };

   void readAgain() {
      for ( auto const & [ interface, wanted ] : database ) {
         current->want( interface, wanted.fields );
      }
   }
   // A new run, with the links as they were.
   void restart() {
      bool const up1 = current->run.kernel.at( "default", "et1" ).up;
      bool const up2 = current->run.kernel.at( "ns-red", "et2" ).up;
      uptime += 10ms;
      crash();
      current.emplace( work.path(), uptime );
      auto & run = current->run;
      run.kernel.netNsIs( "ns-red", "1:2" );
      run.kernel.deviceIs( "default", "et1", 7 );
      run.kernel.deviceIs( "ns-red", "et2", 7 );
      run.kernel.at( "default", "et1" ).up = up1;
      run.kernel.at( "ns-red", "et2" ).up = up2;
      run.feeder.apply( DaemonRun::twoInterfaces() );
      run.libraryStart();
      run.turn();
      run.controller.resume( recover( run.journal ) );
      current->requests.resume();
      current->pass();
   }
   void pass( std::chrono::milliseconds duration ) {
      current->pass( duration );
      uptime += duration;
   }

   std::map< std::string, Model > database; // by interface
   std::chrono::milliseconds uptime{ 0 };
   std::mt19937 random;
};

TEST_P( RequestsHistory, LosesNothingAndDoesNothingTwice ) {
   random.seed( GetParam() );
   auto const below = [ & ]( int count ) {
      return std::uniform_int_distribution< int >( 0, count - 1 )( random );
   };
   start();
   int ids = 0, restarts = 0;
   for ( int step = 0; step < 150 && !HasFailure(); ++step ) {
      std::string const interface = interfaces.at( static_cast< std::size_t >( below( 3 ) ) );
      switch ( below( 6 ) ) {
      case 0:
      case 1: {
         auto const id = std::to_string( ++ids );
         database[ interface ].fields = below( 2 ) ? down( id ) : up( id );
         if ( below( 3 ) ) { // else the notice is lost
            current->want( interface, database[ interface ].fields );
         }
         break;
      }
      case 2:
         readAgain();
         break;
      case 3:
         if ( below( 2 ) ) {
            ++restarts;
            restart();
            if ( below( 2 ) ) {
               readAgain();
            }
         }
         break;
      default:
         pass( std::chrono::milliseconds( below( 400 ) ) );
      }
   }
   EXPECT_GT( restarts, 3 );
   readAgain();
   pass( 3000ms );
   for ( auto const & [ interface, wanted ] : database ) {
      auto const & last = current->last[ interface ];
      EXPECT_EQ( last.first, wanted.fields.at( "id" ) ) << interface;
      if ( interface == "Ethernet9" ) {
         EXPECT_EQ( last.second, "rejected: no such interface" );
         continue;
      }
      auto const link = interface == "Ethernet1" ? current->run.kernel.at( "default", "et1" ).up
                                                 : current->run.kernel.at( "ns-red", "et2" ).up;
      EXPECT_EQ( link, wanted.fields.at( "link" ) == "up" ) << interface << ": " << last.second;
      EXPECT_NE( last.second, "running" );
   }
   std::map< std::string, int > shutdowns; // by id
   for ( auto const & record : current->run.controller.history() ) {
      if ( record.isShutdown() ) {
         EXPECT_EQ( ++shutdowns[ record.interface + " " + record.request.id ], 1 )
            << record.summary();
      }
   }
   EXPECT_GT( shutdowns.size(), 3u );
}

INSTANTIATE_TEST_SUITE_P( Seeds, RequestsHistory, ::testing::Range( 1u, 6u ) );

} // namespace
} // namespace Valend
