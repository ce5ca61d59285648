// The metrics as other programs read them: the formats' parsers in Python, and promtool, whose parser is
// that of the Prometheus server and of node_exporter. The test's target defines PROMTOOL, its path.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

namespace Valen::Test {

// The output of a shell command; after "refused: " if the command fails.
inline std::string outputOf( std::string const & command ) {
   auto * const stream = ::popen( ( command + " 2>&1" ).c_str(), "r" );
   std::string text;
   for ( int character = 0; stream && ( character = std::fgetc( stream ) ) != EOF; ) {
      text += static_cast< char >( character );
   }
   return stream && ::pclose( stream ) == 0 ? text : "refused: " + text;
}

// A line per sample of the text in the file: "TYPE NAME [(label, value)...] VALUE"; or "refused: " and
// why. `parser` is a module of prometheus_client.
inline std::string parsedBy( std::string const & parser, std::string const & path ) {
   return outputOf( "/usr/bin/python3 -c '"
                    "import sys\n"
                    "from prometheus_client." +
                    parser +
                    " import text_string_to_metric_families\n"
                    "for family in text_string_to_metric_families(open(sys.argv[1]).read()):\n"
                    "    for s in family.samples:\n"
                    "        print(family.type, s.name, sorted(s.labels.items()), float(s.value))\n"
                    "' " +
                    path );
}
inline std::string parsedMetrics( std::string const & path ) {
   return parsedBy( "parser", path );
}
inline std::string parsedOpenMetrics( std::string const & path ) {
   return parsedBy( "openmetrics.parser", path );
}

// What promtool finds in the file's text: nothing when it accepts it without a warning.
inline std::string promtoolFindings( std::string const & path ) {
   return outputOf( PROMTOOL " check metrics <" + path );
}

// Which of the programs is missing; null when none is.
inline char const * missingMetricsParser() {
   if ( std::system(
           "/usr/bin/python3 -c 'import prometheus_client.openmetrics.parser' 2>/dev/null" ) ) {
      return "python3-prometheus-client";
   }
   return std::system( "test -x " PROMTOOL ) ? "promtool, of the package prometheus" : nullptr;
}

} // namespace Valen::Test
