#include "valenctl/text/FrameWords.h"

#include "derivation/Derive.h"
#include "settings/Hex.h"
#include "valenctl/text/JsonFields.h"

namespace Valenctl {

namespace {

Json orNull( std::string const & text ) {
   return text.empty() ? Json() : Json( text );
}

} // namespace

Json saidJson( std::string_view frame ) {
   Json said{ { "protocol", nullptr },   { "speaker", nullptr },  { "says", nullptr },
              { "goodbye", nullptr },    { "derived", nullptr },  { "change", nullptr },
              { "notDerived", nullptr }, { "malformed", nullptr } };
   auto const known = Derivation::derive( frame );
   if ( !known ) {
      return said;
   }
   if ( auto const * const malformed = std::get_if< Derivation::Malformed >( &*known ) ) {
      said[ "protocol" ] = malformed->protocol;
      said[ "malformed" ] = malformed->reason;
      return said;
   }
   auto const & heard = std::get< Derivation::Heard >( *known );
   said[ "protocol" ] = heard.protocol;
   said[ "speaker" ] = heard.speaker;
   said[ "says" ] = heard.says;
   said[ "goodbye" ] = heard.leaves;
   said[ "derived" ] = orNull( Settings::toHex( heard.goodbye ) );
   said[ "change" ] = orNull( heard.change );
   said[ "notDerived" ] = orNull( heard.whyNot );
   return said;
}

std::string saidText( Json const & said ) {
   auto const protocol = textField( said, "protocol" );
   if ( protocol.empty() ) {
      return "no protocol that valend knows";
   }
   if ( auto const reason = textField( said, "malformed" ); !reason.empty() ) {
      return protocol + ", malformed: " + reason;
   }
   auto const text =
      protocol + ", " + textField( said, "speaker" ) + ": says " + textField( said, "says" ) + "; ";
   if ( flagField( said, "goodbye" ) ) {
      return text + "a goodbye";
   }
   auto const why = textField( said, "notDerived" );
   return text + ( why.empty() ? "not a goodbye, which would change " + textField( said, "change" )
                               : "not a goodbye, and none can be derived: " + why );
}

std::string knownText( std::string const & hex ) {
   try {
      auto const said = saidJson( Settings::frameFromHex( hex ) );
      return textField( said, "protocol" ).empty() ? "" : saidText( said );
   } catch ( Settings::FrameError const & ) {
      return "";
   }
}

} // namespace Valenctl
