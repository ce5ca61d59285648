#include "database/Transaction.h"

#include <memory>

namespace Database {

namespace {

std::string errorIn( Reply const & reply ) {
   if ( reply.failed() ) {
      return reply.text;
   }
   for ( auto const & item : reply.items ) {
      if ( item.failed() ) {
         return item.text;
      }
   }
   return reply.type == Reply::Type::list ? "" : "the server has not run a transaction";
}

} // namespace

void runTogether(
   Connection & connection, std::vector< Command > const & commands,
   std::function< void( std::string const & error, std::vector< Reply > const & replies ) > done ) {
   // The first error is the reason of the others.
   auto const error = std::make_shared< std::string >();
   auto const queued = [ error ]( Reply const & reply ) {
      if ( reply.failed() && error->empty() ) {
         *error = reply.text;
      }
   };
   connection.command( { "MULTI" }, queued );
   for ( auto const & command : commands ) {
      connection.command( Connection::Words( command ), queued );
   }
   connection.command( { "EXEC" }, [ error, done = std::move( done ) ]( Reply const & reply ) {
      if ( !reply.lost() ) {
         done( error->empty() ? errorIn( reply ) : *error, reply.items );
      }
   } );
}

} // namespace Database
