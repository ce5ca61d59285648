#include "valend/api/SlowAnswer.h"

#include "tests/valend/api/ApiFixture.h"

namespace Valend {
namespace {

using namespace Test;

class SlowAnswerTest : public ::testing::Test {
 protected:
   // An answer of three parts, "1", "2" and "3", with the number of its making before them.
   SlowAnswer::Part part() {
      ++begun;
      return [ this, left = 3 ]( std::string & text ) mutable {
         if ( text.empty() ) {
            text = "{\"text\":\"" + std::to_string( begun ) + ":";
         }
         text += std::to_string( 4 - left );
         if ( between ) {
            between( left );
         }
         if ( --left == 0 ) {
            text += "\"}";
         }
         return left > 0;
      };
   }
   std::shared_ptr< Answers > ask() {
      auto const answers = std::make_shared< Answers >( "org.example.Text" );
      answer.to( std::make_shared< Varlink::Call >( "org.example.Text", Json::object(),
                                                    Varlink::Wanted::one, Varlink::Caller(), 1,
                                                    answers ) );
      return answers;
   }
   void turns() {
      for ( int i = 0; i < 1000 && !work.empty(); ++i ) {
         work.run();
      }
   }

   int begun = 0;
   std::function< void( int left ) > between;
   Valen::Test::SteppedClock clock;
   Gantry::WorkQueue work;
   SlowAnswer answer{ work, clock.scheduler(), "test", [ this ] { return part(); } };
};

TEST_F( SlowAnswerTest, IsMadeOnceForAllWhoAskBeforeItBegins ) {
   auto const first = ask();
   auto const second = ask();
   EXPECT_EQ( begun, 0 ) << "never in the turn that asks";
   turns();
   EXPECT_EQ( begun, 1 );
   EXPECT_EQ( first->parameters()[ "text" ], "1:123" );
   ASSERT_TRUE( first->last && second->last );
   EXPECT_EQ( first->sent, second->sent ) << "the same bytes";
}

TEST_F( SlowAnswerTest, WhoAsksWhileOneIsMadeGetsTheNextOne ) {
   std::vector< std::shared_ptr< Answers > > late;
   between = [ & ]( int left ) {
      if ( begun == 1 && left < 3 ) {
         late.push_back( ask() );
      }
   };
   auto const first = ask();
   turns();
   EXPECT_EQ( first->parameters()[ "text" ], "1:123" );
   ASSERT_EQ( late.size(), 2u );
   EXPECT_EQ( late[ 0 ]->parameters()[ "text" ], "2:123" );
   EXPECT_EQ( late[ 1 ]->parameters()[ "text" ], "2:123" );
   EXPECT_EQ( begun, 2 );
   EXPECT_EQ( ask()->messages.size(), 0u );
   turns();
   EXPECT_EQ( begun, 3 );
}

TEST_F( SlowAnswerTest, ListsAreMadeOneElementAfterTheOther ) {
   auto const list = []( char const * name, std::vector< Json > elements ) {
      return SlowAnswer::List{ name, [ elements = std::move( elements ), i = 0u ]() mutable {
                                 return i < elements.size() ? std::optional( elements[ i++ ] )
                                                            : std::nullopt;
                              } };
   };
   int parts = 0;
   auto const textOf = [ & ]( SlowAnswer::Part const & part ) {
      std::string text;
      for ( parts = 1; part( text ); ++parts ) {
      }
      return text;
   };
   EXPECT_EQ( textOf( SlowAnswer::lists( { list( "all", {} ) } ) ), R"({"all":[]})" );
   EXPECT_EQ( textOf( SlowAnswer::lists( { list( "all", { 1 } ) } ) ), R"({"all":[1]})" );
   EXPECT_EQ( textOf( SlowAnswer::lists( { list( "all", { 1, "\xff", 3 } ) },
                                         [] {
                                            return Json{ { "rest", 4 } };
                                         } ) ),
              "{\"all\":[1,\"\uFFFD\",3],\"rest\":4}" );
   EXPECT_EQ( parts, 4 );
   EXPECT_EQ( textOf( SlowAnswer::lists( { list( "a", { 0 } ), list( "b", { 1, 2 } ) },
                                         [] {
                                            return Json{ { "rest", 4 } };
                                         } ) ),
              R"({"a":[0],"b":[1,2],"rest":4})" );
   EXPECT_EQ( parts, 5 );
}

TEST_F( SlowAnswerTest, TheLoopTurnsBetweenItsParts ) {
   constexpr int parts = 1000; // more than a slice has steps
   int made = 0;
   SlowAnswer slow( work, clock.scheduler(), "test", [ & ] {
      return [ & ]( std::string & text ) {
         text = "{}";
         return ++made < parts;
      };
   } );
   auto const answers = std::make_shared< Answers >( "org.example.Text" );
   slow.to( std::make_shared< Varlink::Call >(
      "org.example.Text", Json::object(), Varlink::Wanted::one, Varlink::Caller(), 1, answers ) );
   work.run();
   EXPECT_GT( made, 0 );
   EXPECT_LT( made, parts );
   EXPECT_FALSE( answers->last );
}

} // namespace
} // namespace Valend
