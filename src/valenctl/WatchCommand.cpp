// watch: the status as it changes. A table that is drawn again and again on a terminal; a line for
// each change in a pipe.
#include "valenctl/JsonFields.h"
#include "valenctl/ReportText.h"
#include "valenctl/Session.h"
#include "valenctl/StatusText.h"

#include <chrono>
#include <map>
#include <ostream>

namespace Valenctl {

namespace {

std::string now() {
   using std::chrono::milliseconds;
   auto const since1970 = std::chrono::system_clock::now().time_since_epoch();
   return timeText( static_cast< std::uint64_t >(
      std::chrono::duration_cast< milliseconds >( since1970 ).count() ) );
}

} // namespace

Exit Session::watch() {
   std::map< std::string, Json > interfaces;
   client_.timeoutIs( std::chrono::milliseconds( 0 ) ); // changes come when they come
   auto const table = [ & ] {
      auto list = Json::array();
      for ( auto const & [ name, interface ] : interfaces ) {
         list.push_back( interface );
      }
      out_ << "\x1b[H\x1b[J" << interfacesText( list, terminal_.colour ) << std::flush;
   };
   auto const lines = [ & ]( std::string const & name, std::string const & text ) {
      out_ << now() << " " << name << ": " << text << std::endl;
   };
   client_.callMore( "WatchStatus", interfaceParameter(), [ & ]( Json const & answer ) {
      if ( options_.json ) {
         printLine( answer );
         return out_.good();
      }
      for ( auto const & interface : listField( answer, "interfaces" ) ) {
         auto const name = textField( interface, "name" );
         auto & known = interfaces[ name ];
         auto const text = interfaceText( interface );
         if ( !terminal_.out && ( known.is_null() || interfaceText( known ) != text ) ) {
            lines( name, text );
         }
         known = interface;
      }
      for ( auto const & name : listField( answer, "gone" ) ) {
         interfaces.erase( name.get< std::string >() );
         if ( !terminal_.out ) {
            lines( name.get< std::string >(), "not configured any more" );
         }
      }
      if ( terminal_.out ) {
         table();
      }
      return out_.good();
   } );
   return Exit::done;
}

} // namespace Valenctl
