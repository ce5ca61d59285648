// The metrics as the format's own parser reads them, which is strict and not ours.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

namespace Valen::Test {

// A line per sample of the text in the file: "TYPE NAME [(label, value)...] VALUE"; or "refused: " and
// why.
inline std::string parsedMetrics( std::string const & path ) {
   static constexpr char const * script =
      "import sys\n"
      "from prometheus_client.openmetrics.parser import text_string_to_metric_families\n"
      "for family in text_string_to_metric_families(open(sys.argv[1]).read()):\n"
      "    for s in family.samples:\n"
      "        print(family.type, s.name, sorted(s.labels.items()), float(s.value))\n";
   auto * const parser = ::popen(
      ( std::string( "/usr/bin/python3 -c '" ) + script + "' " + path + " 2>&1" ).c_str(), "r" );
   std::string text;
   for ( int character = 0; parser && ( character = std::fgetc( parser ) ) != EOF; ) {
      text += static_cast< char >( character );
   }
   return parser && ::pclose( parser ) == 0 ? text : "refused: " + text;
}

inline bool metricsParserThere() {
   return std::system(
             "/usr/bin/python3 -c 'import prometheus_client.openmetrics.parser' 2>/dev/null" ) == 0;
}

} // namespace Valen::Test
