#include "valenctl/Session.h"

#include "valenctl/ConfigCommand.h"
#include "valenctl/JsonFields.h"
#include "valenctl/ReportText.h"
#include "valenctl/StatusText.h"

#include <iostream>

namespace Valenctl {

namespace {

std::string dumped( Json const & json, int indent ) {
   return json.dump( indent, ' ', false, Json::error_handler_t::replace );
}

} // namespace

Session::Session( Options const & options, Terminal const & terminal, std::ostream & out,
                  std::ostream & err )
    : options_( options ), terminal_( terminal ), out_( out ), err_( err ),
      client_( options.socket, "org.valen.daemon", "valend" ) {
   client_.timeoutIs( timeout() );
}

Exit Session::run() {
   using Command = Options::Command;
   switch ( options_.command ) {
   case Command::shutdown:
      return shutdown();
   case Command::enable:
      return enable();
   case Command::status:
      return status();
   case Command::list:
      return list();
   case Command::watch:
      return watch();
   case Command::history:
      return history();
   case Command::explain:
      return explain();
   case Command::wait:
      return wait();
   case Command::messagesList:
      return messagesList();
   case Command::messagesAdd:
      return messagesAdd();
   case Command::messagesRemove:
      return messagesRemove();
   case Command::trace:
      return trace( false );
   case Command::traceFollow:
      return trace( true );
   case Command::traceLevels:
      return traceLevels();
   case Command::show:
      return show();
   case Command::metrics:
      return metrics();
   case Command::configShow:
      return showConfig( options_, client_, out_ );
   case Command::reload:
      return reload( options_, client_, out_, err_ );
   case Command::configCheck:
   case Command::traceDump:
   case Command::frame:
      break; // need no agent
   }
   return Exit::usage;
}

std::chrono::milliseconds Session::timeout() const {
   return std::chrono::milliseconds(
      static_cast< std::int64_t >( options_.timeoutSeconds * 1000 ) );
}

Json Session::interfaceParameter() const {
   return options_.interface.empty() ? Json::object() : Json{ { "interface", options_.interface } };
}

Json Session::wantedParameters() const {
   auto parameters = Json::object();
   if ( !options_.interfaces.empty() ) {
      parameters[ "interfaces" ] = options_.interfaces;
   }
   if ( !options_.vrf.empty() ) {
      parameters[ "vrf" ] = options_.vrf;
   }
   if ( !options_.device.empty() ) {
      parameters[ "device" ] = options_.device;
   }
   if ( options_.ready ) {
      parameters[ "ready" ] = true;
   }
   return parameters;
}

Exit Session::print( Json const & answer, std::string const & text ) {
   out_ << ( options_.json ? dumped( answer, 2 ) + "\n" : text );
   return Exit::done;
}

void Session::printLine( Json const & json ) {
   out_ << dumped( json, -1 ) << std::endl;
}

Exit Session::status() {
   auto const answer = client_.call( "Status", interfaceParameter() );
   return print( answer, statusText( answer, terminal_.colour ) );
}

Exit Session::list() {
   auto const answer = client_.call( "List", wantedParameters() );
   std::string names;
   for ( auto const & name : listField( answer, "interfaces" ) ) {
      names += name.get< std::string >() + "\n";
   }
   return print( answer, names );
}

Exit Session::history() {
   auto const answer = client_.call( "History", interfaceParameter() );
   return print( answer, historyText( answer ) );
}

Exit Session::explain() {
   auto const answer = client_.call( "Explain", interfaceParameter() );
   return print( answer, explainText( options_.interface, answer, terminal_.colour ) );
}

Exit Session::wait() {
   auto parameters = interfaceParameter();
   parameters[ "until" ] = options_.until;
   if ( timeout().count() ) {
      parameters[ "timeoutMs" ] = timeout().count();
      client_.timeoutIs( timeout() + std::chrono::seconds( 5 ) ); // the agent is to say it
   }
   return print( client_.call( "Wait", parameters ), "" );
}

// --- Frames --------------------------------------------------------------------------------------

Exit Session::messagesList() {
   auto const answer = client_.call( "ListMessages", interfaceParameter() );
   return print( answer, messagesText( answer ) );
}

// Those of the command line; "-" stands for the lines of standard input.
std::vector< std::string > Session::framesGiven() const {
   std::vector< std::string > frames;
   for ( auto const & frame : options_.frames ) {
      if ( frame != "-" ) {
         frames.push_back( frame );
         continue;
      }
      for ( std::string line; std::getline( std::cin, line ); ) {
         if ( !line.empty() ) {
            frames.push_back( line );
         }
      }
   }
   return frames;
}

Exit Session::messagesAdd() {
   auto parameters = interfaceParameter();
   parameters[ "agent" ] = options_.agent;
   parameters[ "frames" ] = framesGiven();
   parameters[ "lifetime" ] = options_.whileConnected ? "connection" : "kept";
   auto const answer = client_.call( "Publish", parameters );
   err_ << tooLongText( answer );
   print( answer, "" );
   if ( options_.whileConnected ) {
      out_.flush();
      client_.waitForEnd();
   }
   return Exit::done;
}

Exit Session::messagesRemove() {
   auto parameters = interfaceParameter();
   parameters[ "agent" ] = options_.agent;
   return print( client_.call( "Withdraw", parameters ), "" );
}

// --- The agent itself ----------------------------------------------------------------------------

Exit Session::trace( bool follow ) {
   auto const printLines = [ & ]( Json const & answer ) {
      for ( auto const & line : listField( answer, "lines" ) ) {
         if ( options_.json ) {
            printLine( line );
         } else {
            out_ << traceText( numberField( line, "timeNs" ), textField( line, "unit" ),
                               numberField( line, "level" ), textField( line, "text" ) )
                 << '\n';
         }
      }
      out_.flush();
      return out_.good();
   };
   Json const parameters{ { "lines", options_.lines } };
   if ( follow ) {
      client_.timeoutIs( std::chrono::milliseconds( 0 ) ); // lines come when they come
      client_.callMore( "Trace", parameters, printLines );
   } else {
      printLines( client_.call( "Trace", parameters ) );
   }
   return Exit::done;
}

Exit Session::traceLevels() {
   auto const parameters =
      options_.levels.empty() ? Json::object() : Json{ { "levels", options_.levels } };
   auto const answer = client_.call( "TraceLevels", parameters );
   return print( answer, textField( answer, "levels" ) + "\n" );
}

Exit Session::metrics() {
   auto const answer = client_.call( "Metrics", Json::object() );
   return print( answer, textField( answer, "text" ) );
}

Exit Session::show() {
   Json const parameters{ { "path", options_.path } };
   if ( !options_.follow ) {
      out_ << dumped( client_.call( "Show", parameters ).value( "value", Json() ), 2 ) << '\n';
      return Exit::done;
   }
   client_.timeoutIs( std::chrono::milliseconds( 0 ) );
   client_.callMore( "Watch", parameters, [ & ]( Json const & answer ) {
      printLine( answer.value( "value", Json() ) );
      return out_.good();
   } );
   return Exit::done;
}

} // namespace Valenctl
