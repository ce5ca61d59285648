#include "valend/base/Errors.h"

namespace Valend::Errors {

namespace {

std::string quoted( std::string const & text ) {
   return "\"" + text + "\"";
}

} // namespace

Refusal noSuchInterface( std::string const & interface ) {
   return Refusal( "NoSuchInterface", "interface " + quoted( interface ) + " is not configured" );
}

Refusal noSuchVrf( std::string const & vrf ) {
   return Refusal( "NoSuchVrf", "VRF " + quoted( vrf ) + " is not configured" );
}

Refusal noSuchPath( std::string const & path ) {
   return Refusal( "NoSuchPath", "no such path: " + quoted( path ) );
}

Refusal noSuchMessages( std::string const & agent, std::string const & interface ) {
   return Refusal( "NoSuchMessages", "agent " + quoted( agent ) +
                                        " has not published frames for interface " +
                                        quoted( interface ) );
}

Refusal messagesAreConfigured( std::string const & agent, std::string const & interface ) {
   return Refusal( "NoSuchMessages", "the frames of agent " + quoted( agent ) + " for interface " +
                                        quoted( interface ) +
                                        " are not published: they are in the configuration" );
}

Refusal badSelection() {
   return Refusal( "BadSelection",
                   "no interfaces selected: give interfaces, vrf, device or ready; or "
                   "all, alone, for all interfaces" );
}

Refusal badReason( std::size_t maxBytes, std::optional< std::string > const & unprintable ) {
   return Refusal( "BadReason", "a reason must have 1 to " + std::to_string( maxBytes ) +
                                   " bytes, without control characters" +
                                   ( unprintable ? ": " + *unprintable : "" ) );
}

Refusal delayTooLong( U64 delayMs, U64 maxMs ) {
   return Refusal( "DelayTooLong", "a delay of " + std::to_string( delayMs ) +
                                      " ms exceeds the limit of " + std::to_string( maxMs ) +
                                      " ms (max-shutdown-delay-ms)" );
}

Refusal badFrame( std::size_t number, std::string const & why ) {
   return Refusal( "BadFrame", "frame " + std::to_string( number ) + ": " + why );
}

Refusal badAgentName( std::size_t maxBytes, std::optional< std::string > const & unprintable ) {
   return Refusal( "BadName", "an agent's name must have 1 to " + std::to_string( maxBytes ) +
                                 " bytes, without whitespace and slashes" +
                                 ( unprintable ? ": " + *unprintable : "" ) );
}

Refusal reservedAgentName( std::string_view prefix ) {
   return Refusal( "BadName",
                   "names of agents that begin with " + quoted( std::string( prefix ) ) +
                      " are reserved for what valend learns; publish under another name" );
}

Refusal badTraceLevels( std::string const & why ) {
   return Refusal( "BadTraceLevels", why );
}

Refusal noFrames() {
   return Refusal( "NoFrames", "no frames given; to withdraw, use \"valenctl messages remove\"" );
}

Refusal tooMuchMemory( std::size_t bytes, std::size_t maxBytes ) {
   return Refusal( "TooMuch", "published frames would take " + std::to_string( bytes ) +
                                 " bytes of memory; the limit is " + std::to_string( maxBytes ) );
}

Refusal tooManyValues( U64 maxValues ) {
   return Refusal( "TooLarge", "more than " + std::to_string( maxValues ) +
                                  " values at this path; ask for a longer path" );
}

Refusal tooManyClients() {
   return Refusal( "TooManyClients",
                   "too many clients watch, or have frames bound to their connections; "
                   "end some that are not needed" );
}

Refusal agentIsConfigured( std::string const & agent ) {
   return Refusal( "AgentExists", "agent " + quoted( agent ) +
                                     " is in the configuration; publish under another name" );
}

Refusal messagesAreLearned( std::string const & agent, std::string const & interface ) {
   return Refusal( "AgentExists", "the frames of agent " + quoted( agent ) + " for interface " +
                                     quoted( interface ) +
                                     " were learned by valend; the key \"goodbyes\" of the "
                                     "configuration decides what it learns" );
}

Refusal messagesAreOfDatabase( std::string const & agent, std::string const & interface ) {
   return Refusal( "AgentExists", "the frames of agent " + quoted( agent ) + " for interface " +
                                     quoted( interface ) +
                                     " are in the database; delete them there" );
}

Refusal agentIsOfAnotherClient( std::string const & agent ) {
   return Refusal( "AgentExists", "another client publishes as agent " + quoted( agent ) +
                                     "; its frames are withdrawn when it disconnects" );
}

Refusal noDevice( std::string const & why ) {
   return Refusal( "NoDevice", why );
}

Refusal linkFailed( std::string const & why ) {
   return Refusal( "LinkFailed", why );
}

Refusal timedOut( std::string const & interface, std::string const & awaited ) {
   return Refusal( "TimedOut",
                   "timed out: interface " + quoted( interface ) + " is not " + awaited );
}

Refusal configRejected( std::vector< std::string > const & errors ) {
   return Refusal( "ConfigRefused", "configuration rejected; keeping the previous one",
                   { { "errors", errors } } );
}

} // namespace Valend::Errors
