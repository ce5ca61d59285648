#include "valend/shutdown/OwedLines.h"

#include <gmock/gmock.h>

namespace Valend {
namespace {

using ::testing::ElementsAre;
using Kind = OwedLines::Kind;

std::vector< U64 > ids( OwedLines & owed ) {
   std::vector< U64 > ids;
   for ( auto const & line : owed ) {
      ids.push_back( line.id );
   }
   return ids;
}

TEST( OwedLinesTest, OfOneShutdownTheNewestIsKept ) {
   OwedLines owed;
   owed.add( { 1, "requested", 0, Kind::optional } );
   owed.add( { 2, "ended", 0, Kind::optional } );
   owed.add( { 1, "held", 0, Kind::optional } );
   EXPECT_THAT( ids( owed ), ElementsAre( 2, 1 ) );
   EXPECT_EQ( owed.bytes(), 9u );
   EXPECT_EQ( std::next( owed.begin() )->text, "held" );
   EXPECT_EQ( owed.remove( owed.begin() )->id, 1u );
   EXPECT_EQ( owed.bytes(), 4u );
}

TEST( OwedLinesTest, TheOldestAreGivenUpButNotThoseThatAreNeeded ) {
   OwedLines owed;
   std::string const third( OwedLines::limit / 3, 'x' );
   owed.add( { 1, third, 0, Kind::needed } );
   owed.add( { 2, third, 0, Kind::optional } );
   owed.add( { 3, third, 0, Kind::optional } );
   owed.add( { 4, third, 0, Kind::optional } );
   EXPECT_THAT( ids( owed ), ElementsAre( 1, 3, 4 ) );
}

} // namespace
} // namespace Valend
