#include "valenctl/Commands.h"

#include "platform/quill/Exception.h"
#include "platform/trace/Blipline.h"
#include "valenctl/ConfigCommand.h"
#include "valenctl/Session.h"
#include "valenctl/StatusText.h"

#include <fstream>
#include <ostream>

namespace Valenctl {

namespace {

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

Exit talk( Options const & options, std::ostream & out, std::ostream & err ) {
   auto exit = Exit::done;
   try {
      auto const terminal = terminalOfProcess();
      return Session( options, terminal, out, err ).run();
   } catch ( Varlink::Refused const & e ) {
      err << "valenctl: " << e.what() << '\n';
      exit = e.name() == "org.valen.daemon.TimedOut" ? Exit::timedOut : Exit::refused;
   } catch ( Varlink::TimedOut const & e ) {
      err << "valenctl: " << e.what() << '\n';
      exit = Exit::timedOut;
   } catch ( std::exception const & e ) { // Varlink::NoService, and answers that make no sense
      err << "valenctl: " << e.what() << '\n';
      exit = Exit::noAgent;
   }
   return exit;
}

// `messages add` of the frames that are built.
Exit queueFrames( Options const & options, std::ostream & out, std::ostream & err ) {
   auto const add = [ & ]( auto const & frames ) {
      auto adding = options;
      adding.command = Options::Command::messagesAdd;
      adding.agent = options.frame.queueAgent();
      adding.interface = options.frame.queueInterface;
      adding.frames = hexOf( frames );
      return talk( adding, out, err );
   };
   return useFrames( options.frame, add, err );
}

} // namespace

Exit runCommand( Options const & options, std::ostream & out, std::ostream & err ) {
   using Command = Options::Command;
   switch ( options.command ) {
   case Command::frame:
      return options.frame.queueInterface.empty() ? runFrame( options.frame, out, err )
                                                  : queueFrames( options, out, err );
   case Command::configCheck:
      return checkConfig( options, out, err );
   case Command::traceDump:
      return dumpRing( options.file, out, err );
   default:
      return talk( options, out, err );
   }
}

} // namespace Valenctl
