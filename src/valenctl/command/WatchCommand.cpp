// watch: the status whenever it changes. A table that is redrawn on a terminal; one line for each
// change otherwise.
#include "valenctl/command/CommandGroups.h"
#include "valenctl/command/Session.h"
#include "valenctl/database/HostCommands.h"
#include "valenctl/text/StatusText.h"
#include "valenctl/text/TimeText.h"

#include <CLI/CLI.hpp>
#include <map>
#include <ostream>

namespace Valenctl {

namespace {

class Watch final : public Command {
 public:
   void addOptions( CLI::App & app ) override {
      app.add_option( "INTERFACE", interface_, "Show only this interface" )->type_name( "" );
   }

   Exit run( Session & session ) override {
      session.answerTimeoutIs( std::chrono::milliseconds( 0 ) ); // the next change may be far away
      session.client().callMore( "WatchStatus", interfaceParameter( interface_ ),
                                 [ & ]( Json const & answer ) {
                                    show( session, answer );
                                    return session.out().good();
                                 } );
      return Exit::done;
   }
   Exit runForHosts( HostSession const & session ) override {
      return watchHosts( session, interface_ );
   }

 private:
   void show( Session & session, Json const & answer ) {
      if ( session.json() ) {
         session.printLine( answer );
      } else if ( session.terminal().out ) {
         update( answer, []( auto const &, auto const & ) {} );
         drawTable( session );
      } else {
         update( answer, [ & ]( std::string const & name, std::string const & text ) {
            printChange( session, name, text );
         } );
      }
   }

   // Takes the answer into what is known. `changed` is called with the name of each interface whose
   // text changed, and the new text.
   template < class Changed > void update( Json const & answer, Changed const & changed ) {
      for ( auto const & interface : listField( answer, "interfaces" ) ) {
         auto const name = textField( interface, "name" );
         auto const text = interfaceText( interface );
         auto & known = interfaces_[ name ];
         if ( known.is_null() || interfaceText( known ) != text ) {
            changed( name, text );
         }
         known = interface;
      }
      for ( auto const & name : textsField( answer, "gone" ) ) {
         interfaces_.erase( name );
         changed( name, "removed from the configuration" );
      }
   }

   void drawTable( Session & session ) const {
      auto list = Json::array();
      for ( auto const & [ name, interface ] : interfaces_ ) {
         list.push_back( interface );
      }
      session.out() << "\x1b[H\x1b[J" << interfacesText( list, session.palette() ) << std::flush;
   }

   static void printChange( Session & session, std::string const & name,
                            std::string const & text ) {
      auto const now = std::chrono::system_clock::now().time_since_epoch();
      session.out() << timeText( std::chrono::floor< std::chrono::milliseconds >( now ) ) << " "
                    << name << ": " << text << std::endl;
   }

   std::string interface_; // empty: all
   std::map< std::string, Json > interfaces_;
};

} // namespace

std::vector< CommandRow > watchCommand() {
   return { { "watch", "Show the status whenever it changes", make< Watch >,
              "Draws a table on a terminal; otherwise prints one line for each change." } };
}

} // namespace Valenctl
