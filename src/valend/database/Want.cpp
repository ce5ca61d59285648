#include "valend/database/Want.h"

#include "platform/quill/Printable.h"
#include "valend/base/Errors.h"

#include <charconv>
#include <stdexcept>

namespace Valend {

namespace {

class BadWant : public std::runtime_error {
   using runtime_error::runtime_error;
};

std::string fieldOf( Settings::Fields const & fields, char const * name ) {
   auto const found = fields.find( name );
   return found == fields.end() ? "" : found->second;
}

// A text of at most `maxBytes`.
std::string textOf( Settings::Fields const & fields, char const * name, std::size_t maxBytes ) {
   auto text = fieldOf( fields, name );
   if ( text.size() > maxBytes ) {
      throw BadWant( std::string( name ) + " has " + std::to_string( text.size() ) +
                     " bytes; expected at most " + std::to_string( maxBytes ) );
   }
   if ( auto const where = Quill::unprintableIn( text ) ) {
      throw BadWant( std::string( name ) + " is not printable text: " + *where );
   }
   return text;
}

std::optional< std::chrono::milliseconds > delayOf( std::string const & text, U64 maxMs ) {
   if ( text.empty() ) {
      return std::nullopt;
   }
   U32 value = 0;
   auto const end = text.data() + text.size();
   auto const [ stop, code ] = std::from_chars( text.data(), end, value );
   if ( code != std::errc() || stop != end ) {
      throw BadWant( "delay-ms is \"" + Quill::printable( text.substr( 0, 100 ) ) +
                     "\"; expected milliseconds" );
   }
   if ( value > maxMs ) {
      throw BadWant( Errors::delayTooLong( value, maxMs ).what() );
   }
   return std::chrono::milliseconds( value );
}

void readWant( Settings::Fields const & fields, U64 maxDelayMs, Want & want ) {
   auto const id = textOf( fields, "id", Want::maxIdBytes );
   if ( id.empty() ) {
      throw BadWant( "no id; expected 1 to " + std::to_string( Want::maxIdBytes ) + " bytes" );
   }
   want.id = id;
   auto const link = fieldOf( fields, "link" );
   if ( link != "up" && link != "down" ) {
      throw BadWant( "link is \"" + Quill::printable( link.substr( 0, 100 ) ) +
                     "\"; expected up or down" );
   }
   want.up = link == "up";
   want.request.by = "database";
   want.request.id = id;
   want.request.login = textOf( fields, "by", Want::maxByBytes );
   want.request.reason = textOf( fields, "reason", Request::maxReasonBytes );
   want.request.delay = delayOf( fieldOf( fields, "delay-ms" ), maxDelayMs );
}

} // namespace

Want wantOf( Settings::Fields const & fields, U64 maxDelayMs ) {
   Want want;
   try {
      readWant( fields, maxDelayMs, want );
   } catch ( BadWant const & e ) {
      want.why = e.what();
   }
   return want;
}

} // namespace Valend
