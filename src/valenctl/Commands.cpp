#include "valenctl/Commands.h"

#include "platform/quill/Exception.h"
#include "platform/trace/Blipline.h"
#include "valenctl/ApiClient.h"
#include "valenctl/ConfigCommand.h"
#include "valenctl/StatusText.h"

#include <fstream>
#include <ostream>

namespace Valenctl {

namespace {

std::string pretty( Json const & json ) {
   return json.dump( 2, ' ', false, Json::error_handler_t::replace );
}

Json interfaceParameter( Options const & options ) {
   return options.interface.empty() ? Json::object() : Json{ { "interface", options.interface } };
}

class Session {
 public:
   Session( Options const & options, std::ostream & out, std::ostream & err )
       : options_( options ), out_( out ), err_( err ), client_( options.socket ) {
      client_.patienceIs( timeout() );
   }

   Exit run() {
      using Command = Options::Command;
      switch ( options_.command ) {
      case Command::shutdown:
         return shutdown();
      case Command::enable:
         return enable();
      case Command::status:
         return status();
      case Command::history:
         return history();
      case Command::trace:
         return trace( false );
      case Command::traceFollow:
         return trace( true );
      case Command::traceLevels:
         return traceLevels();
      case Command::show:
         return show();
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

 private:
   std::chrono::milliseconds timeout() const {
      return std::chrono::milliseconds(
         static_cast< std::int64_t >( options_.timeoutSeconds * 1000 ) );
   }

   // Says the step, and returns what it makes of the command.
   Exit tellStep( Json const & answer ) {
      err_ << stepText( answer ) << std::endl;
      auto const shutdown = answer.value( "shutdown", Json::object() );
      auto const ending = shutdown.value( "ending", "" );
      bool const well =
         answer.value( "step", "" ) != "ended" || ending == "down" || ending == "already-down";
      return well ? Exit::done : Exit::refused;
   }

   Exit shutdown() {
      if ( !options_.wait ) {
         return tellStep( client_.call( "Shutdown", interfaceParameter( options_ ) ) );
      }
      auto exit = Exit::done;
      client_.callMore( "Shutdown", interfaceParameter( options_ ), [ & ]( Json const & answer ) {
         exit = tellStep( answer );
         auto const & delay = answer.value( "delayMs", Json() );
         if ( delay.is_number() && timeout().count() ) { // the next step comes after it
            client_.patienceIs( timeout() + std::chrono::milliseconds( delay.get< int >() ) );
         }
         return true;
      } );
      return exit;
   }

   Exit enable() {
      auto const answer = client_.call( "Enable", interfaceParameter( options_ ) );
      auto const result = answer.value( "result", "" );
      err_ << options_.interface << ": "
           << ( result == "aborted"      ? "shutdown called off, link stays up"
                : result == "already-up" ? "link was up already"
                                         : "link up" )
           << '\n';
      return Exit::done;
   }

   Exit status() {
      auto const answer = client_.call( "Status", interfaceParameter( options_ ) );
      out_ << ( options_.json ? pretty( answer ) + "\n" : statusText( answer ) );
      return Exit::done;
   }

   Exit history() {
      auto const answer = client_.call( "History", interfaceParameter( options_ ) );
      out_ << pretty( answer ) << '\n';
      return Exit::done;
   }

   Exit trace( bool follow ) {
      auto const print = [ & ]( Json const & answer ) {
         for ( auto const & line : answer.value( "lines", Json::array() ) ) {
            out_ << traceText( line.value( "timeNs", 0ull ), line.value( "unit", "" ),
                               line.value( "level", 0u ), line.value( "text", "" ) )
                 << '\n';
         }
         out_.flush();
         return out_.good();
      };
      Json const parameters{ { "lines", options_.lines } };
      if ( follow ) {
         client_.patienceIs( std::chrono::milliseconds( 0 ) ); // lines come when they come
         client_.callMore( "Trace", parameters, print );
      } else {
         print( client_.call( "Trace", parameters ) );
      }
      return Exit::done;
   }

   Exit traceLevels() {
      auto const parameters =
         options_.levels.empty() ? Json::object() : Json{ { "levels", options_.levels } };
      out_ << client_.call( "TraceLevels", parameters ).value( "levels", "" ) << '\n';
      return Exit::done;
   }

   Exit show() {
      auto const answer = client_.call( "Show", { { "path", options_.path } } );
      out_ << pretty( answer.value( "value", Json() ) ) << '\n';
      return Exit::done;
   }

   Options const & options_;
   std::ostream & out_;
   std::ostream & err_;
   ApiClient client_;
};

// Shows the lines of a ring file.
Exit dumpRing( std::string const & path, std::ostream & out, std::ostream & err ) {
   std::ifstream file( path, std::ios::binary | std::ios::ate );
   if ( !file ) {
      err << "valenctl: " << path << " cannot be read\n";
      return Exit::refused;
   }
   auto const size = static_cast< std::size_t >( file.tellg() );
   std::vector< std::byte > memory( size );
   file.seekg( 0 );
   file.read( reinterpret_cast< char * >( memory.data() ), static_cast< std::streamsize >( size ) );
   Blipline::Reader reader( memory );
   if ( !file || !reader.valid() ) {
      err << "valenctl: " << path << " holds no trace ring\n";
      return Exit::refused;
   }
   Blipline::Line line;
   while ( reader.next( line ) ) {
      out << traceText( static_cast< std::uint64_t >( reader.wallTime( line.time ).count() ),
                        std::string( line.unit ), line.level, std::string( line.text.view() ) )
          << '\n';
   }
   if ( reader.damaged() ) {
      err << "valenctl: " << path << " is damaged; what could be read is shown\n";
   }
   return Exit::done;
}

} // namespace

Exit runCommand( Options const & options, std::ostream & out, std::ostream & err ) {
   if ( options.command == Options::Command::frame ) {
      return runFrame( options.frame, out, err );
   }
   if ( options.command == Options::Command::configCheck ) {
      return checkConfig( options, out, err );
   }
   auto exit = Exit::done;
   try {
      return options.command == Options::Command::traceDump ? dumpRing( options.file, out, err )
                                                            : Session( options, out, err ).run();
   } catch ( Refused const & e ) {
      err << "valenctl: " << e.what() << '\n';
      exit = Exit::refused;
   } catch ( TimedOut const & e ) {
      err << "valenctl: " << e.what() << '\n';
      exit = Exit::timedOut;
   } catch ( std::exception const & e ) { // NoAgent, and answers that make no sense
      err << "valenctl: " << e.what() << '\n';
      exit = Exit::noAgent;
   }
   return exit;
}

} // namespace Valenctl
