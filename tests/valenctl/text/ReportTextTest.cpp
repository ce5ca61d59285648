#include "valenctl/text/ReportText.h"

#include <gtest/gtest.h>

namespace Valenctl {
namespace {

TEST( ReportTextTest, ExplainShowsWhatIsMissing ) {
   Json const answer{
      { "ready", false },
      { "link", "up" },
      { "requirements",
        { { { "what", "delay enabled" }, { "met", true }, { "detail", "held for 500 ms" } },
          { { "what", "device present" }, { "met", false }, { "detail", "no device" } },
          { { "what", "the rest" }, { "met", false }, { "detail", "" } } } } };
   EXPECT_EQ( explainText( "Ethernet1", answer ), "Ethernet1: not ready, link up\n"
                                                  "  yes  delay enabled: held for 500 ms\n"
                                                  "  NO   device present: no device\n"
                                                  "  NO   the rest\n" );
   EXPECT_EQ(
      explainText( "Ethernet1", { { "ready", true }, { "link", "up" } }, Palette::colored() ),
      "Ethernet1: \x1b[32mready\x1b[0m, link up\n" );
}

TEST( ReportTextTest, ExplainShowsWhyALinkDoesNotGoDown ) {
   EXPECT_EQ( explainText( "Ethernet1",
                           { { "ready", true }, { "link", "up" }, { "retrying", "no memory" } } ),
              "Ethernet1: ready, link up\n"
              "  NO   link set down: no memory; valend goes on trying\n" );
}

TEST( ReportTextTest, MemoryIsListedByTypeAndAddedUp ) {
   Json const answer{ { "types",
                        { { { "type", "Valen::IntfSm" }, { "live", 10 }, { "bytes", 2400 } },
                          { { "type", "Valen::Intf" }, { "live", 2 }, { "bytes", 320 } } } } };
   EXPECT_EQ( memoryText( answer ), "TYPE           OBJECTS  BYTES\n"
                                    "Valen::IntfSm  10       2400\n"
                                    "Valen::Intf    2        320\n"
                                    "total          12       2720\n" );
}

TEST( ReportTextTest, TraceLinesHaveTheirTime ) {
   EXPECT_EQ( traceText( { 1'700'000'000'123'456'789u, "ConfigSm", 1, "void f(): x" } ),
              "2023-11-14T22:13:20.123456Z ConfigSm/1 void f(): x" );
}

TEST( ReportTextTest, ExplainShowsWhatIsHeardAndWhyItIsNotLearned ) {
   auto const speaker = []( char const * protocol, char const * name, Json const & why ) {
      return Json{ { "protocol", protocol }, { "speaker", name },          { "says", "ttl 120" },
                   { "frames", 1 },          { "change", "ttl 120 -> 0" }, { "notLearned", why },
                   { "heardMs", 3000 },      { "freshMs", 117'000 } };
   };
   auto rip = speaker( "rip", "router 192.0.2.1", nullptr );
   rip[ "frames" ] = 3;
   EXPECT_EQ(
      explainText( "Ethernet1",
                   { { "ready", true },
                     { "link", "up" },
                     { "notMuted", "no right" },
                     { "speakers",
                       { speaker( "lldp", "port eth0", nullptr ), rip,
                         speaker( "ospf", "router 192.0.2.1", "authenticated with MD5" ) } } } ),
      "Ethernet1: ready, link up\n"
      "  NO   speakers can be muted, so that goodbyes last: no right\n"
      "  yes  goodbye learned: lldp, port eth0: ttl 120 -> 0; heard 3 s ago, fresh for 117 s\n"
      "  yes  goodbye learned: rip, router 192.0.2.1: ttl 120 -> 0 and 2 more frames; heard 3 s "
      "ago, "
      "fresh for 117 s\n"
      "  no   goodbye learned: ospf, router 192.0.2.1: authenticated with MD5\n" );
   EXPECT_EQ(
      explainText( "Ethernet1", { { "ready", true }, { "link", "up" }, { "notMuted", nullptr } } ),
      "Ethernet1: ready, link up\n" );
}

} // namespace
} // namespace Valenctl
