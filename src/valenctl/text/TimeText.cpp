#include "valenctl/text/TimeText.h"

#include <charconv>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <string_view>

namespace Valenctl {

namespace {

std::string withFraction( std::chrono::seconds sinceEpoch, int digits, long fraction ) {
   auto const seconds = static_cast< std::time_t >( sinceEpoch.count() );
   std::tm utc{};
   ::gmtime_r( &seconds, &utc );
   char date[ 32 ];
   std::strftime( date, sizeof date, "%Y-%m-%dT%H:%M:%S", &utc );
   char decimals[ 32 ];
   std::snprintf( decimals, sizeof decimals, ".%0*ldZ", digits, fraction );
   return std::string( date ) + decimals;
}

// How long ago: digits, and a unit. At most a thousand years, so that nothing overflows.
std::optional< std::chrono::seconds > agoFrom( std::string const & text ) {
   constexpr std::string_view units = "smhd";
   constexpr std::int64_t seconds[] = { 1, 60, 3600, 86400 };
   constexpr std::int64_t most = 1000LL * 366 * 86400;
   std::int64_t count = 0;
   auto const end = text.data() + text.size();
   auto const [ stop, code ] = std::from_chars( text.data(), end, count );
   auto const unit = stop + 1 == end ? units.find( *stop ) : units.npos;
   if ( code != std::errc() || unit == units.npos || count < 0 || count > most / seconds[ unit ] ) {
      return std::nullopt;
   }
   return std::chrono::seconds( count * seconds[ unit ] );
}

// A date and time in the format of strptime(3); nothing when the text has anything else. What follows
// the seconds is left in `rest`, if that is given.
std::optional< std::tm > dateFrom( std::string const & text, char const * format,
                                   std::string * rest = nullptr ) {
   std::tm date{};
   auto const * const stop = ::strptime( text.c_str(), format, &date );
   if ( !stop || ( !rest && *stop ) ) {
      return std::nullopt;
   }
   if ( rest ) {
      *rest = stop;
   }
   date.tm_isdst = -1; // as the zone has it then
   return date;
}

// ".123Z" or "Z".
std::optional< std::chrono::milliseconds > fractionFrom( std::string const & text ) {
   if ( text == "Z" ) {
      return std::chrono::milliseconds( 0 );
   }
   int milliseconds = 0;
   int weight = 100;
   for ( std::size_t i = 1; i + 1 < text.size(); ++i, weight /= 10 ) {
      if ( text[ i ] < '0' || text[ i ] > '9' ) {
         return std::nullopt;
      }
      milliseconds += ( text[ i ] - '0' ) * weight;
   }
   bool const valid = text.size() > 2 && text.front() == '.' && text.back() == 'Z';
   return valid ? std::optional( std::chrono::milliseconds( milliseconds ) ) : std::nullopt;
}

} // namespace

std::optional< std::chrono::milliseconds > timeFrom( std::string const & text,
                                                     std::chrono::milliseconds now ) {
   if ( auto const ago = agoFrom( text ) ) {
      return now - *ago;
   }
   std::string rest;
   if ( auto date = dateFrom( text, "%Y-%m-%dT%H:%M:%S", &rest ) ) {
      auto const fraction = fractionFrom( rest );
      return fraction ? std::optional( std::chrono::seconds( ::timegm( &*date ) ) + *fraction )
                      : std::nullopt;
   }
   for ( auto const * format : { "%Y-%m-%d %H:%M", "%Y-%m-%d %H:%M:%S" } ) {
      if ( auto date = dateFrom( text, format ) ) {
         return std::chrono::seconds( std::mktime( &*date ) );
      }
   }
   return std::nullopt;
}

std::string timeText( std::chrono::milliseconds sinceEpoch ) {
   auto const seconds = std::chrono::floor< std::chrono::seconds >( sinceEpoch );
   return withFraction( seconds, 3, ( sinceEpoch - seconds ).count() );
}

std::string timeText( std::chrono::microseconds sinceEpoch ) {
   auto const seconds = std::chrono::floor< std::chrono::seconds >( sinceEpoch );
   return withFraction( seconds, 6, ( sinceEpoch - seconds ).count() );
}

std::string durationText( std::chrono::milliseconds duration ) {
   using namespace std::chrono_literals;
   if ( duration < 1s ) {
      return std::to_string( duration.count() ) + " ms";
   }
   if ( duration < 2min ) {
      return std::to_string( duration / 1s ) + " s";
   }
   return duration < 2h ? std::to_string( duration / 1min ) + " min"
                        : std::to_string( duration / 1h ) + " h";
}

} // namespace Valenctl
