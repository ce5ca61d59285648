// The errors that the control API answers, each defined in one place. org.valen.daemon.varlink lists
// their names. The arguments are what the error's text names.
#pragma once

#include "valend/base/Refusal.h"

#include "platform/quill/Int.h"

#include <optional>
#include <string_view>
#include <vector>

namespace Valend::Errors {

// Something that a call names does not exist.
Refusal noSuchInterface( std::string const & interface );
Refusal noSuchVrf( std::string const & vrf );
Refusal noSuchPath( std::string const & path );
Refusal noSuchMessages( std::string const & agent, std::string const & interface );
// The agent has frames for the interface, but they are in the configuration.
Refusal messagesAreConfigured( std::string const & agent, std::string const & interface );

// A parameter that valend rejects.
Refusal badSelection();
// `unprintable`: the character that it may not have, if there is one.
Refusal badReason( std::size_t maxBytes, std::optional< std::string > const & unprintable );
Refusal delayTooLong( U64 delayMs, U64 maxMs );
Refusal badFrame( std::size_t number, std::string const & why );
Refusal badAgentName( std::size_t maxBytes, std::optional< std::string > const & unprintable );
Refusal reservedAgentName( std::string_view prefix );
Refusal badTraceLevels( std::string const & why );
Refusal noFrames();
Refusal tooMuchMemory( std::size_t bytes, std::size_t maxBytes );
Refusal tooManyValues( U64 maxValues );
Refusal tooManyClients();

// An agent's name that is taken.
Refusal agentIsConfigured( std::string const & agent );
Refusal agentIsOfAnotherClient( std::string const & agent );
// Only valend itself withdraws them.
Refusal messagesAreLearned( std::string const & agent, std::string const & interface );
// They are withdrawn in the database.
Refusal messagesAreOfDatabase( std::string const & agent, std::string const & interface );

// An operation that failed. `why` has the link and errno's text.
Refusal noDevice( std::string const & why );
Refusal linkFailed( std::string const & why );
Refusal timedOut( std::string const & interface, std::string const & awaited );

// `errors`: all that is wrong with the configuration, a line each.
Refusal configRejected( std::vector< std::string > const & errors );

} // namespace Valend::Errors
