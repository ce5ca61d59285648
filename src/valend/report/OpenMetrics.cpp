#include "valend/report/OpenMetrics.h"

#include <cstdio>
#include <string_view>

namespace Valend {

namespace {

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;
using Labels = std::vector< ClientMetric::Label >;

constexpr std::string_view counterSuffix = "_total";

std::string escaped( std::string_view text ) {
   std::string result;
   for ( auto const character : text ) {
      if ( character == '\n' ) {
         result += "\\n";
         continue;
      }
      if ( character == '\\' || character == '"' ) {
         result += '\\';
      }
      result += character;
   }
   return result;
}

std::string number( double value ) {
   char text[ 32 ];
   std::snprintf( text, sizeof text, "%.15g", value );
   return text;
}

// A bound is a canonical number: "1.0", "0.5".
std::string bound( double value ) {
   auto const text = number( value );
   return text.find_first_of( ".e" ) == text.npos ? text + ".0" : text;
}

std::string line( std::string const & name, Labels const & labels, std::string const & value ) {
   auto text = name;
   char separator = '{';
   for ( auto const & label : labels ) {
      text += separator + label.name + "=\"" + escaped( label.value ) + '"';
      separator = ',';
   }
   return text + ( labels.empty() ? " " : "} " ) + value + '\n';
}

std::string histogram( std::string const & name, ClientMetric::Histogram const & values ) {
   auto const count = std::to_string( values.sample_count );
   std::string text;
   for ( auto const & bucket : values.bucket ) {
      text += line( name + "_bucket", { { "le", bound( bucket.upper_bound ) } },
                    std::to_string( bucket.cumulative_count ) );
   }
   return text + line( name + "_bucket", { { "le", "+Inf" } }, count ) +
          line( name + "_count", {}, count ) +
          line( name + "_sum", {}, number( values.sample_sum ) );
}

std::string sample( MetricFamily const & family, ClientMetric const & metric ) {
   switch ( family.type ) {
   case MetricType::Counter:
      return line( family.name, metric.label, number( metric.counter.value ) );
   case MetricType::Histogram:
      return histogram( family.name, metric.histogram );
   default:
      return line( family.name, metric.label, number( metric.gauge.value ) );
   }
}

// The family of a counter is named without the suffix of its samples.
std::string familyText( MetricFamily const & family ) {
   bool const isCounter = family.type == MetricType::Counter;
   auto const name =
      family.name.substr( 0, family.name.size() - ( isCounter ? counterSuffix.size() : 0 ) );
   auto const * const type = isCounter                              ? " counter\n"
                             : family.type == MetricType::Histogram ? " histogram\n"
                                                                    : " gauge\n";
   auto text = "# TYPE " + name + type + "# HELP " + name + ' ' + escaped( family.help ) + '\n';
   for ( auto const & metric : family.metric ) {
      text += sample( family, metric );
   }
   return text;
}

} // namespace

std::string openMetricsText( std::vector< MetricFamily > const & families ) {
   std::string text;
   for ( auto const & family : families ) {
      text += familyText( family );
   }
   return text + "# EOF\n";
}

} // namespace Valend
