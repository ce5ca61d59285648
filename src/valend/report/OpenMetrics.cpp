#include "valend/report/OpenMetrics.h"

#include <cstdio>

namespace Valend {

namespace {

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

} // namespace

std::string OpenMetrics::number( double value ) {
   char text[ 32 ];
   std::snprintf( text, sizeof text, "%.12g", value );
   std::string result( text );
   return result.find_first_of( ".en" ) == result.npos ? result + ".0" : result;
}

void OpenMetrics::family( std::string_view name, std::string_view type, std::string_view help,
                          std::string_view unit ) {
   name_ = name;
   text_ += "# TYPE " + name_ + ' ' + std::string( type ) + '\n';
   if ( !unit.empty() ) {
      text_ += "# UNIT " + name_ + ' ' + std::string( unit ) + '\n';
   }
   text_ += "# HELP " + name_ + ' ' + escaped( help ) + '\n';
}

void OpenMetrics::sample( std::string_view suffix, Labels const & labels, double value ) {
   line( suffix, labels, number( value ) );
}

void OpenMetrics::sample( std::string_view suffix, Labels const & labels, U64 value ) {
   line( suffix, labels, std::to_string( value ) );
}

void OpenMetrics::line( std::string_view suffix, Labels const & labels,
                        std::string const & value ) {
   text_ += name_ + std::string( suffix );
   char separator = '{';
   for ( auto const & [ label, content ] : labels ) {
      text_ += separator + std::string( label ) + "=\"" + escaped( content ) + '"';
      separator = ',';
   }
   text_ += ( labels.empty() ? " " : "} " ) + value + '\n';
}

void OpenMetrics::counter( std::string_view name, std::string_view help, U64 value ) {
   family( name, "counter", help );
   sample( "_total", {}, value );
}

void OpenMetrics::gauge( std::string_view name, std::string_view help, U64 value ) {
   family( name, "gauge", help );
   sample( "", {}, value );
}

} // namespace Valend
