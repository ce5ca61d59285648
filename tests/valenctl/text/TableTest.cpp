#include "valenctl/text/Table.h"

#include <gtest/gtest.h>

namespace Valenctl {
namespace {

TEST( TableTest, ColumnsAreAsWideAsTheirWidestCell ) {
   Table table( { "A", "LONG", "C" } );
   table.add( { "wide cell", "x", "" } );
   table.add( { "ü", "y", "z" } );
   EXPECT_EQ( table.text(), "A          LONG  C\n"
                            "wide cell  x\n"
                            "ü          y     z\n" );
}

TEST( TableTest, ColorsHaveNoWidth ) {
   Table table( { "A", "B" } );
   table.add( { "\x1b[32mx\x1b[0m", "y" } );
   EXPECT_EQ( table.text(), "A  B\n"
                            "\x1b[32mx\x1b[0m  y\n" );
}

} // namespace
} // namespace Valenctl
