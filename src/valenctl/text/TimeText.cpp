#include "valenctl/text/TimeText.h"

#include <cstdio>
#include <ctime>

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

} // namespace

std::string timeText( std::chrono::milliseconds sinceEpoch ) {
   auto const seconds = std::chrono::floor< std::chrono::seconds >( sinceEpoch );
   return withFraction( seconds, 3, ( sinceEpoch - seconds ).count() );
}

std::string timeText( std::chrono::microseconds sinceEpoch ) {
   auto const seconds = std::chrono::floor< std::chrono::seconds >( sinceEpoch );
   return withFraction( seconds, 6, ( sinceEpoch - seconds ).count() );
}

} // namespace Valenctl
