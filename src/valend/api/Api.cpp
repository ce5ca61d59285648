#include "valend/api/Api.h"

#include "platform/quill/Assert.h"
#include "valend/api/DescriptionTexts.h"

namespace Valend {

Api::Api( Parts const & parts )
    : parts_( parts ), report_( parts.store, parts.feeder, parts.port, parts.controller ),
      description_( daemonDescription ), serviceDescription_( serviceDescription ),
      links_( parts_ ), watches_( parts_, report_ ), status_( parts_, report_ ),
      frames_( parts_, report_, watches_ ), store_( parts_ ), trace_( parts_ ), config_( parts_ ) {
   add( serviceDescription_, service_ );
   for ( auto * const group : groups_ ) {
      add( description_, *group );
   }
}

// A row that its description does not match could only be called wrongly.
void Api::add( Varlink::Description const & description, MethodGroup & group ) {
   for ( auto & method : group.methods() ) {
      auto const described = description.methods().find( method.name );
      VALEN_ASSERT( described != description.methods().end() );
      VALEN_ASSERT( method.accepts( described->second.parameters ) );
      auto name = description.name() + "." + method.name;
      rows_.emplace( std::move( name ), Row{ std::move( method ), description } );
   }
}

std::vector< std::string > Api::methods() const {
   std::vector< std::string > names;
   for ( auto const & [ name, row ] : rows_ ) {
      names.push_back( name );
   }
   return names;
}

void Api::call( Call call ) {
   try {
      dispatch( call );
   } catch ( Refusal const & e ) {
      answer( *call, e );
   } catch ( Varlink::Error const & e ) {
      call->error( e );
   }
}

Varlink::Rank Api::rankOf( Varlink::Caller const & caller ) const {
   if ( caller.isRoot() ) {
      return Varlink::Rank::root;
   }
   auto const right = parts_.access.of( caller );
   return right == Right::change ? Varlink::Rank::admin
          : right == Right::read ? Varlink::Rank::user
                                 : Varlink::Rank::stranger;
}

void Api::clientGone( U64 client ) {
   for ( auto * const group : groups_ ) {
      group->clientGone( client );
   }
}

void Api::dispatch( Call const & call ) const {
   auto const & [ method, description ] = row( call->method() );
   parts_.access.require( method.right, call->caller(), method.name );
   auto const & parameters = description.methods().at( method.name ).parameters;
   if ( auto const wrong = description.mismatch( call->parameters(), parameters ) ) {
      throw Varlink::Errors::invalidParameter( *wrong );
   }
   if ( method.replies == Replies::stream && !call->more() ) {
      throw Varlink::Errors::expectedMore( method.name + " streams replies; set \"more\"" );
   }
   method.run( call, parameters );
}

Api::Row const & Api::row( std::string const & method ) const {
   if ( auto const found = rows_.find( method ); found != rows_.end() ) {
      return found->second;
   }
   auto const interface = method.substr( 0, method.rfind( '.' ) );
   if ( interface == description_.name() || interface == serviceDescription_.name() ) {
      throw Varlink::Errors::methodNotFound( method );
   }
   throw Varlink::Errors::interfaceNotFound( interface );
}

} // namespace Valend
