// A method of the API, as a row in the table of its group.
#pragma once

#include "valend/api/Access.h"
#include "valend/api/Arguments.h"
#include "valend/base/Errors.h"
#include "varlink/Call.h"

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Valend {

using Call = std::shared_ptr< Varlink::Call >;

enum class Replies : U8 {
   once,   // though it may take "more"
   stream, // until the client goes: must be called with "more"
};

struct Method {
   std::string name; // without the interface's: "Shutdown"
   Right right;      // that the caller must have
   Replies replies;
   // Whether the function takes the parameters that the structure describes, in their order.
   std::function< bool( Varlink::Type const & parameters ) > accepts;
   // Calls it with the call's parameters, which are as described. Throws Refusal and Varlink::Error.
   std::function< void( Call const & call, Varlink::Type const & parameters ) > run;
};

// Ends a call of the daemon's interface with an error.
inline void answer( Varlink::Call & call, Refusal const & refusal ) {
   call.error( "org.valen.daemon." + refusal.name(), refusal.parameters() );
}

// To be called for a call that lasts until its client goes. Throws Refusal "TooManyClients".
inline void lasts( Varlink::Call & call ) {
   if ( !call.mayLast() ) {
      throw Errors::tooManyClients();
   }
   call.lasts();
}

// Methods of one subject. They live as long as the API.
class MethodGroup {
 public:
   virtual ~MethodGroup() = default;
   virtual std::vector< Method > methods() = 0;
   // A client's connection has ended.
   virtual void clientGone( U64 /* client */ ) {}
};

// How a group's function is called with the parameters of a call.
template < class Group, class... Arguments > struct Binding {
   using Function = void ( Group::* )( Call const & call, Arguments... );

   template < std::size_t... I >
   static bool accepts( Varlink::Type const & parameters, std::index_sequence< I... > ) {
      return parameters.fields.size() == sizeof...( I ) &&
             ( Argument< std::decay_t< Arguments > >::accepts( parameters.fields[ I ].type ) &&
               ... );
   }
   template < std::size_t... I >
   static void run( Group & group, Function function, Call const & call,
                    Varlink::Type const & parameters, std::index_sequence< I... > ) {
      ( group.*function )( call, argument< std::decay_t< Arguments > >(
                                    call->parameters(), parameters.fields[ I ].name )... );
   }
};

// The row of a group's function: its arguments after the call are the described parameters, as plain
// values. The function answers the call, at once or later.
template < class Group, class... Arguments >
Method method( std::string name, Right right, Group & group,
               void ( Group::*function )( Call const & call, Arguments... ),
               Replies replies = Replies::once ) {
   using Bound = Binding< Group, Arguments... >;
   using Indexes = std::index_sequence_for< Arguments... >;
   return { std::move( name ), right, replies,
            []( auto const & parameters ) { return Bound::accepts( parameters, Indexes() ); },
            [ &group, function ]( auto const & call, auto const & parameters ) {
               Bound::run( group, function, call, parameters, Indexes() );
            } };
}

} // namespace Valend
