#include "valend/configuration/FrameEntries.h"

#include <algorithm>

namespace Valend {

using Valen::Config::Agent::Message;
using Valen::Config::Agent::MessageDir;

namespace {

Quill::Ptr< Message > messageOf( std::string const & interface, Settings::Frames const & frames ) {
   auto const message = Quill::make< Message >( Corvid::IntfId( interface ) );
   for ( auto const & frame : frames ) {
      message->messageEnq( frame );
   }
   return message;
}

} // namespace

bool FrameEntries::losesAll( std::string const & interface, ByAgent const & wanted ) const {
   auto const found = agentsOf_.find( interface );
   return found != agentsOf_.end() &&
          std::none_of( found->second.begin(), found->second.end(),
                        [ & ]( auto const & agent ) { return wanted.contains( agent ); } );
}

void FrameEntries::remove( std::string const & interface, ByAgent const & wanted,
                           Agents const & kept ) {
   auto const found = agentsOf_.find( interface );
   if ( found == agentsOf_.end() ) {
      return;
   }
   for ( auto agent = found->second.begin(); agent != found->second.end(); ) {
      if ( wanted.contains( *agent ) ) {
         ++agent;
         continue;
      }
      auto & messages = agents_.at( *agent );
      messages.erase( interface );
      if ( messages.empty() && !kept.contains( *agent ) ) {
         agentDel( *agent );
      } else {
         store_.messageDir( *agent )->messageDel( interface );
      }
      agent = found->second.erase( agent );
   }
   if ( found->second.empty() ) {
      agentsOf_.erase( found );
   }
}

void FrameEntries::add( std::string const & interface, ByAgent const & wanted ) {
   for ( auto const & [ agent, frames ] : wanted ) {
      agentAdd( agent );
      auto & messages = agents_.at( agent );
      auto const old = messages.find( interface );
      if ( old == messages.end() || old->second != frames ) {
         messages.insert_or_assign( interface, frames );
         agentsOf_[ interface ].insert( agent );
         store_.messageDir( agent )->messageIs( interface, messageOf( interface, frames ) );
      }
   }
}

void FrameEntries::agentAdd( std::string const & agent ) {
   if ( agents_.try_emplace( agent ).second ) {
      auto const agentDir = Quill::make< Quill::Dir >();
      agentDir->entryIs( "messages", Quill::make< MessageDir >() );
      store_.agentConfigDir->entryIs( agent, agentDir );
   }
}

void FrameEntries::agentDel( std::string const & agent ) {
   store_.agentConfigDir->entryDel( agent );
   agents_.erase( agent );
}

} // namespace Valend
