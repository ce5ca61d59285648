#include "tests/valend/api/ApiFixture.h"

namespace Valend {
namespace {

using namespace Test;

class ConfigMethodsTest : public ApiFixture {
 protected:
   ConfigMethodsTest() { startPublishing( twoInterfaces() ); }
};

TEST_F( ConfigMethodsTest, ReloadAnswersTheChanges ) {
   reload = []( auto const & done ) {
      done( { { "interface Ethernet3 added" },
              { "conf.d/a.yml: ignored" },
              { { "Ethernet1", "no frames" } } } );
   };
   EXPECT_EQ(
      call( "Reload", Json::object() )->parameters(),
      ( Json{ { "changed", { "interface Ethernet3 added" } },
              { "warnings", { "conf.d/a.yml: ignored" } },
              { "notReady", { { { "interface", "Ethernet1" }, { "why", "no frames" } } } } } ) );
}

TEST_F( ConfigMethodsTest, ARejectedConfigurationIsAnsweredWithAllThatIsWrong ) {
   reload = []( auto const & done ) {
      done( { {}, {}, {}, Errors::configRejected( { "a", "b" } ) } );
   };
   auto const answers = call( "Reload", Json::object() );
   EXPECT_EQ( answers->error(), "org.valen.daemon.ConfigRefused: configuration rejected; keeping "
                                "the previous one" );
   EXPECT_EQ( answers->parameters()[ "errors" ], Json::array( { "a", "b" } ) );
}

TEST_F( ConfigMethodsTest, ConfigAnswersWhatIsActive ) {
   auto const answers = std::make_shared< Answers >( "org.valen.daemon.Config" );
   api.call( std::make_shared< Varlink::Call >( "org.valen.daemon.Config", Json::object(),
                                                Varlink::Wanted::one,
                                                Varlink::Caller{ 0, 1, { 0 } }, 1, answers ) );
   EXPECT_FALSE( answers->last ) << "it is made in slices";
   turn();
   EXPECT_EQ( answers->parameters()[ "interfaces" ], Json::array() );
}

TEST_F( ConfigMethodsTest, RescanIsAChange ) {
   Varlink::Caller const reader{ 1000, 1, { 4001 } };
   callAs( reader, "org.valen.daemon.Rescan", Json::object() );
   EXPECT_EQ( rescans, 0 );
   EXPECT_EQ( call( "Rescan", Json::object() )->parameters(), Json::object() );
   EXPECT_EQ( rescans, 1 );
}

} // namespace
} // namespace Valend
