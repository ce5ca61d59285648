// messages list, show, add and remove.
#include "valenctl/command/MessageCommands.h"

#include "settings/Hex.h"
#include "valenctl/command/CommandGroups.h"
#include "valenctl/command/FrameDecoding.h"
#include "valenctl/command/Session.h"
#include "valenctl/text/MessagesText.h"

#include <CLI/CLI.hpp>
#include <iostream>

namespace Valenctl {

namespace {

class MessagesList final : public Command {
 public:
   void addOptions( CLI::App & app ) override {
      app.add_option( "INTERFACE", interface_, "Show only frames for this interface" )
         ->type_name( "" );
   }

   Exit run( Session & session ) override {
      auto const answer = session.call( "ListMessages", interfaceParameter( interface_ ) );
      session.print( answer, messagesText( answer ) );
      return Exit::done;
   }

 private:
   std::string interface_; // empty: all
};

class MessagesShow final : public Command {
 public:
   void addOptions( CLI::App & app ) override {
      app.add_option( "AGENT", agent_, "Name of the agent" )->type_name( "" )->required();
      app.add_option( "INTERFACE", interface_, "Configured name" )->type_name( "" )->required();
   }

   Exit run( Session & session ) override {
      auto const message = found( session );
      Settings::FrameList frames;
      for ( auto const & hex : textsField( message, "frames" ) ) {
         frames.push_back( Settings::frameFromHex( hex ) );
      }
      return printDecoded( session, frames, [ & ]( std::size_t number, std::string const & frame ) {
         return learnedLine( message, number ) + "  " + Settings::toHex( frame ) + "\n";
      } );
   }

 private:
   Json found( Session & session ) const {
      auto const answer = session.call( "ListMessages", interfaceParameter( interface_ ) );
      for ( auto const & message : listField( answer, "messages" ) ) {
         if ( textField( message, "agent" ) == agent_ ) {
            return message;
         }
      }
      throw std::runtime_error( "agent \"" + agent_ + "\" has no frames for interface \"" +
                                interface_ + "\"" );
   }

   static std::string learnedLine( Json const & message, std::size_t number ) {
      for ( auto const & learned : listField( message, "learned" ) ) {
         if ( numberField( learned, "frame" ) == number ) {
            return "  " + textField( learned, "change" ) + "; " + ageText( learned ) + "\n";
         }
      }
      return "";
   }

   std::string agent_;
   std::string interface_;
};

class MessagesAdd final : public Command {
 public:
   void addOptions( CLI::App & app ) override {
      app.add_option( "AGENT", publication_.agent,
                      "Name to publish as; not that of an agent in the configuration" )
         ->type_name( "" )
         ->required();
      app.add_option( "INTERFACE", publication_.interface, "Configured name" )
         ->type_name( "" )
         ->required();
      app.add_option( "FRAME", publication_.frames,
                      "Complete frames in hexadecimal; - reads them from standard input, one a "
                      "line" )
         ->type_name( "" )
         ->required();
      app.add_flag( "--while-running", whileRunning_,
                    "Stay in the foreground; withdraw the frames on exit" );
   }

   Exit run( Session & session ) override {
      publication_.frames = withStandardInput( publication_.frames );
      auto const exit =
         publish( session, publication_, whileRunning_ ? Lifetime::connection : Lifetime::kept );
      if ( whileRunning_ ) {
         session.out().flush();
         session.client().waitForEnd();
      }
      return exit;
   }

 private:
   // The frames, with the lines of standard input in place of "-".
   static std::vector< std::string > withStandardInput( std::vector< std::string > const & given ) {
      std::vector< std::string > frames;
      for ( auto const & frame : given ) {
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

   Publication publication_;
   bool whileRunning_ = false;
};

class MessagesRemove final : public Command {
 public:
   void addOptions( CLI::App & app ) override {
      app.add_option( "AGENT", agent_, "Name the frames were published as" )
         ->type_name( "" )
         ->required();
      app.add_option( "INTERFACE", interface_, "Configured name" )->type_name( "" )->required();
   }

   Exit run( Session & session ) override {
      Json const parameters{ { "agent", agent_ }, { "interface", interface_ } };
      auto const answer = session.call( "Withdraw", parameters );
      if ( !answer.value( "saved", true ) ) {
         session.err()
            << "not saved: frames that were kept may be back after a restart of valend; see "
               "\"valenctl status\"\n";
      }
      session.print( answer, "" );
      return Exit::done;
   }

 private:
   std::string agent_;
   std::string interface_;
};

} // namespace

Exit publish( Session & session, Publication const & publication, Lifetime lifetime ) {
   auto const answer = session.call(
      "Publish", { { "agent", publication.agent },
                   { "interface", publication.interface },
                   { "frames", publication.frames },
                   { "lifetime", lifetime == Lifetime::kept ? "kept" : "connection" } } );
   session.err() << tooLongText( answer );
   if ( lifetime == Lifetime::kept && !answer.value( "saved", true ) ) {
      session.err()
         << "not saved: a restart of valend would lose the frames; see \"valenctl status\"\n";
   }
   session.print( answer, "" );
   return Exit::done;
}

std::vector< CommandRow > messageCommands() {
   return {
      { "messages", "List, show, add and remove frames", {} },
      { "messages list", "Show which agents have queued frames for which interfaces",
        make< MessagesList > },
      { "messages show", "Show what the frames of an agent for an interface say",
        make< MessagesShow >, "The exit status is 1 if a frame is malformed." },
      { "messages add", "Queue frames, replacing those queued earlier", make< MessagesAdd > },
      { "messages remove", "Withdraw frames that were added", make< MessagesRemove > },
   };
}

} // namespace Valenctl
