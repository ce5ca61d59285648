#include "valend/api/Method.h"

#include <gmock/gmock.h>

namespace Valend {
namespace {

using Varlink::Description;
using Varlink::Json;

enum class Size { small, large };
constexpr auto enumTexts( Size ) {
   return std::to_array< EnumText< Size > >(
      { { Size::small, "small" }, { Size::large, "large" } } );
}

class Group final : public MethodGroup {
 public:
   std::vector< Method > methods() override {
      return { method( "Order", Right::change, *this, &Group::order ) };
   }

   std::string ordered;

 private:
   void order( Call const &, std::string const & what, U64 count, Size size,
               std::optional< std::vector< std::string > > const & notes,
               std::optional< bool > now ) {
      ordered = what + " " + std::to_string( count ) + " " + textOf( size ) + " " +
                ( notes ? std::to_string( notes->size() ) + " notes" : "no notes" ) +
                ( now.value_or( false ) ? " now" : "" );
   }
};

Varlink::Type typeOf( std::string const & parameters ) {
   return Description( "interface a.b method M" + parameters + " -> ()" )
      .methods()
      .at( "M" )
      .parameters;
}

std::string const described =
   "(what: string, count: int, size: (small, large), notes: ?[]string, now: ?bool)";

class MethodTest : public ::testing::Test {
 protected:
   // What the group was called with; or the parameter that is out of range.
   std::string run( Json const & parameters ) {
      auto const call = std::make_shared< Varlink::Call >( "M", parameters, Varlink::Wanted::one,
                                                           Varlink::Caller(), 1,
                                                           std::weak_ptr< Varlink::Replies >() );
      try {
         row.run( call, typeOf( described ) );
      } catch ( Varlink::Error const & e ) {
         return e.what();
      }
      return group.ordered;
   }

   Group group;
   Method const row = group.methods()[ 0 ];
};

TEST_F( MethodTest, ParametersBecomePlainValues ) {
   EXPECT_EQ( run( { { "what", "tea" },
                     { "count", 2 },
                     { "size", "large" },
                     { "notes", { "hot", "green" } },
                     { "now", true } } ),
              "tea 2 large 2 notes now" );
   EXPECT_EQ(
      run( { { "what", "tea" }, { "count", 0 }, { "size", "small" }, { "notes", nullptr } } ),
      "tea 0 small no notes" );
}

TEST_F( MethodTest, ACountBelowZeroIsInvalid ) {
   EXPECT_EQ( run( { { "what", "tea" }, { "count", -1 }, { "size", "small" } } ),
              "org.varlink.service.InvalidParameter {\"parameter\":\"count\"}" );
}

TEST_F( MethodTest, AFunctionAcceptsOnlyTheDescriptionItIsWrittenFor ) {
   EXPECT_TRUE( row.accepts( typeOf( described ) ) );
   auto const accepts = [ & ]( std::string const & from, std::string const & to ) {
      auto text = described;
      return row.accepts( typeOf( text.replace( text.find( from ), from.size(), to ) ) );
   };
   EXPECT_FALSE( accepts( "what: string", "what: ?string" ) );
   EXPECT_FALSE( accepts( "count: int", "count: string" ) );
   EXPECT_FALSE( accepts( "(small, large)", "(small, large, huge)" ) );
   EXPECT_FALSE( accepts( "(small, large)", "(small, big)" ) );
   EXPECT_FALSE( accepts( "?[]string", "?[]int" ) );
   EXPECT_FALSE( accepts( "?[]string", "[]string" ) );
   EXPECT_FALSE( accepts( ", now: ?bool", "" ) );
   EXPECT_FALSE( accepts( "?bool)", "?bool, more: ?bool)" ) );
}

} // namespace
} // namespace Valend
