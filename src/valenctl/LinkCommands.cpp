// shutdown and enable.
#include "valenctl/JsonFields.h"
#include "valenctl/Session.h"
#include "valenctl/StatusText.h"

#include <algorithm>
#include <ostream>

namespace Valenctl {

Exit Session::tellStep( Json const & step ) {
   auto const ending = textField( step.value( "shutdown", Json::object() ), "ending" );
   bool const well =
      textField( step, "step" ) != "ended" || ending == "down" || ending == "already-down";
   if ( options_.json ) {
      printLine( step );
   } else if ( !options_.quiet || !well ) {
      err_ << ( terminal_.err ? "\r\x1b[K" : "" ) << stepText( step ) << std::endl;
   }
   return well ? Exit::done : Exit::refused;
}

Exit Session::shutdown() {
   auto exit = Exit::done;
   auto const tell = [ & ]( Json const & answer ) {
      std::uint64_t longest = 0;
      for ( auto const & step : listField( answer, "steps" ) ) {
         exit = std::max( exit, tellStep( step ) );
         longest = std::max( longest, numberField( step, "delayMs" ) );
      }
      if ( longest && timeout().count() ) { // the next step comes after it
         client_.timeoutIs( timeout() + std::chrono::milliseconds( longest ) );
      }
      auto const pending = numberField( answer, "pending" );
      if ( terminal_.err && options_.wait && !options_.json && !options_.quiet && pending ) {
         err_ << pending << " not down yet" << std::flush; // the next step overwrites it
      }
      return true;
   };
   if ( options_.wait ) {
      client_.callMore( "ShutdownMany", wantedParameters(), tell );
   } else {
      tell( client_.call( "ShutdownMany", wantedParameters() ) );
   }
   return exit;
}

Exit Session::enable() {
   auto const answer = client_.call( "EnableMany", wantedParameters() );
   auto exit = Exit::done;
   for ( auto const & each : listField( answer, "results" ) ) {
      auto const result = textField( each, "result" );
      if ( result == "failed" ) {
         exit = Exit::refused;
         err_ << "valenctl: " << textField( each, "interface" ) << ": "
              << textField( each, "message" ) << '\n';
      } else if ( !options_.json && !options_.quiet ) {
         err_ << textField( each, "interface" ) << ": "
              << ( result == "aborted"      ? "shutdown called off, link stays up"
                   : result == "already-up" ? "link was up already"
                                            : "link up" )
              << '\n';
      }
   }
   print( answer, "" );
   return exit;
}

} // namespace Valenctl
