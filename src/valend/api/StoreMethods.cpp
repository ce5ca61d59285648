#include "valend/api/StoreMethods.h"

#include "valend/store/StoreWalker.h"

namespace Valend {

std::vector< Method > StoreMethods::methods() {
   return { method( "Show", Right::read, *this, &StoreMethods::show ) };
}

void StoreMethods::show( Call const & call, std::string const & path ) {
   auto value = showPath( *store_.entityManager, path );
   if ( !value ) {
      throw Errors::noSuchPath( path );
   }
   call->reply( { { "value", *std::move( value ) } } );
}

} // namespace Valend
