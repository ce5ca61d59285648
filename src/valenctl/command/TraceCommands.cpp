// trace: its newest lines, levels, follow and dump.
#include "platform/quill/Printable.h"
#include "platform/trace/Blipline.h"
#include "valenctl/command/CommandGroups.h"
#include "valenctl/command/Session.h"
#include "valenctl/text/ReportText.h"

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <span>

namespace Valenctl {

namespace {

// One line of the trace, as valend's API has it.
void printTraceLine( Session & session, Json const & line ) {
   if ( session.json() ) {
      session.printLine( line );
   } else {
      session.out() << traceText( { numberField( line, "timeNs" ), textField( line, "unit" ),
                                    numberField( line, "level" ), textField( line, "text" ) } )
                    << '\n';
   }
}

void printLines( Session & session, Json const & answer ) {
   for ( auto const & line : listField( answer, "lines" ) ) {
      printTraceLine( session, line );
   }
   session.out().flush();
}

// How many past lines `trace` and `trace follow` begin with: an option of `trace`, given before or
// after "follow".
using LineCount = std::shared_ptr< unsigned >;

class Trace final : public Command {
 public:
   explicit Trace( LineCount lines ) : lines_( std::move( lines ) ) {}

   void addOptions( CLI::App & app ) override {
      app.add_option( "--lines", *lines_, "Number of past lines" )
         ->type_name( "NUMBER" )
         ->capture_default_str();
   }

   Exit run( Session & session ) override {
      printLines( session, session.call( "Trace", { { "lines", *lines_ } } ) );
      return Exit::done;
   }

 private:
   LineCount const lines_;
};

class TraceFollow final : public Command {
 public:
   explicit TraceFollow( LineCount lines ) : lines_( std::move( lines ) ) {}

   Exit run( Session & session ) override {
      session.answerTimeoutIs( std::chrono::milliseconds( 0 ) ); // the next line may be far away
      session.client().callMore( "Trace", { { "lines", *lines_ } }, [ & ]( Json const & answer ) {
         printLines( session, answer );
         return session.out().good();
      } );
      return Exit::done;
   }

 private:
   LineCount const lines_;
};

class TraceLevels final : public Command {
 public:
   void addOptions( CLI::App & app ) override {
      app.add_option( "LEVELS", levels_,
                      "Such as \"ConfigSm/0-1,Intf*/0\"; only shown when absent" )
         ->type_name( "" );
   }

   Exit run( Session & session ) override {
      auto const parameters = levels_.empty() ? Json::object() : Json{ { "levels", levels_ } };
      auto const answer = session.call( "TraceLevels", parameters );
      session.print( answer, textField( answer, "levels" ) + "\n" );
      return Exit::done;
   }

 private:
   std::string levels_;
};

class TraceDump final : public Command {
 public:
   void addOptions( CLI::App & app ) override {
      app.add_option( "--file", file_, "Ring file that valend writes with --trace-ring" )
         ->type_name( "FILE" )
         ->required();
   }

   Exit run( Session & session ) override {
      auto const memory = contents();
      Blipline::Reader reader( memory );
      if ( !reader.valid() ) {
         throw std::runtime_error( file_ + " is not a trace ring" );
      }
      Blipline::Line line;
      while ( reader.next( line ) ) {
         printTraceLine( session, { { "timeNs", reader.wallTime( line.time ).count() },
                                    { "unit", line.unit },
                                    { "level", line.level },
                                    { "text", Quill::printable( line.text.view() ) } } );
      }
      if ( reader.damaged() ) {
         session.err() << "valenctl: " << file_ << " is damaged; only readable lines are shown\n";
      }
      return Exit::done;
   }

 private:
   std::vector< std::byte > contents() const {
      errno = 0;
      std::ifstream file( file_, std::ios::binary );
      if ( !file ) {
         throw std::runtime_error( "cannot open " + file_ + ": " + std::strerror( errno ) );
      }
      std::vector< std::byte > content;
      char chunk[ 65536 ];
      while ( file.read( chunk, sizeof chunk ), file.gcount() > 0 ) {
         auto const bytes =
            std::as_bytes( std::span( chunk, static_cast< std::size_t >( file.gcount() ) ) );
         content.insert( content.end(), bytes.begin(), bytes.end() );
      }
      if ( file.bad() ) {
         throw std::runtime_error( "cannot read " + file_ + ": " + std::strerror( errno ) );
      }
      return content;
   }

   std::string file_;
};

constexpr unsigned defaultLines = 100;

} // namespace

std::vector< CommandRow > traceCommands() {
   auto const lines = std::make_shared< unsigned >( defaultLines );
   return {
      { "trace", "Show the newest trace lines",
        [ = ] { return std::make_unique< Trace >( lines ); } },
      { "trace levels", "Show or set trace levels", make< TraceLevels > },
      { "trace follow", "Show trace lines as they are written",
        [ = ] { return std::make_unique< TraceFollow >( lines ); } },
      { "trace dump", "Show all lines of a ring file; does not need valend", make< TraceDump > },
   };
}

} // namespace Valenctl
