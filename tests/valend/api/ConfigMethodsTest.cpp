#include "tests/valend/api/ApiFixture.h"

namespace Valend {
namespace {

using namespace Test;

class ConfigMethodsTest : public ApiFixture {
 protected:
   ConfigMethodsTest() { startPublishing( twoInterfaces() ); }
};

TEST_F( ConfigMethodsTest, ReloadAnswersTheChanges ) {
   reload = [] { return std::vector< std::string >{ "interface Ethernet3 added" }; };
   EXPECT_EQ( call( "Reload", Json::object() )->parameters()[ "changed" ],
              Json::array( { "interface Ethernet3 added" } ) );
}

TEST_F( ConfigMethodsTest, ARejectedConfigurationIsAnsweredWithAllThatIsWrong ) {
   reload = []() -> std::vector< std::string > { throw Errors::configRejected( { "a", "b" } ); };
   auto const answers = call( "Reload", Json::object() );
   EXPECT_EQ( answers->error(), "org.valen.daemon.ConfigRefused: configuration rejected; keeping "
                                "the previous one" );
   EXPECT_EQ( answers->parameters()[ "errors" ], Json::array( { "a", "b" } ) );
}

TEST_F( ConfigMethodsTest, ConfigAnswersWhatIsActive ) {
   EXPECT_EQ( call( "Config", Json::object() )->parameters()[ "interfaces" ], Json::array() );
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
